#include "Protocol.h"

// int runHttp(int argc, char** argv);
int runClip(int argc, char** argv);

const Protocol kProtocols[] = {
    {"clip", "writes a test clip as an elementary stream file", runClip},
};
const unsigned kProtocolCount = sizeof kProtocols / sizeof kProtocols[0];
