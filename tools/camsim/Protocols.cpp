#include "Protocol.h"

int runHttp(int argc, char** argv);
int runClip(int argc, char** argv);
int runPushIn(int argc, char** argv);
int runRtsp(int argc, char** argv);

const Protocol kProtocols[] = {
    {"http", "motion JPEG, MPEG and audio over HTTP; one JPEG a GET (--bosch)", runHttp},
    {"clip", "writes a test clip as an elementary stream file", runClip},
    {"pushin", "a recorder process that pushes into a local socket", runPushIn},
    {"rtsp", "an RTSP camera: video, audio, metadata", runRtsp},
};
const unsigned kProtocolCount = sizeof kProtocols / sizeof kProtocols[0];
