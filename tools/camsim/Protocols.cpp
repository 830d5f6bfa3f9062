#include "Protocol.h"

// int runHttp(int argc, char** argv);
int runClip(int argc, char** argv);
int runRtsp(int argc, char** argv);

const Protocol kProtocols[] = {
    {"clip", "writes a test clip as an elementary stream file", runClip},
    {"rtsp", "an RTSP camera: video, audio, metadata", runRtsp},
};
const unsigned kProtocolCount = sizeof kProtocols / sizeof kProtocols[0];
