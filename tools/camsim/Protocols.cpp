#include "Protocol.h"

int runHttp(int argc, char** argv);
int runClip(int argc, char** argv);
int runPelco(int argc, char** argv);
int runDante(int argc, char** argv);
int runPushIn(int argc, char** argv);
int runRtp(int argc, char** argv);
int runRtsp(int argc, char** argv);
int runTs(int argc, char** argv);
int runSamsung(int argc, char** argv);
int runVsip(int argc, char** argv);

const Protocol kProtocols[] = {
    {"http", "motion JPEG, MPEG and audio over HTTP; one JPEG a GET (--bosch)", runHttp},
    {"clip", "writes a test clip as an elementary stream file", runClip},
    {"pelco", "a Pelco camera: SOAP services, video as RTP", runPelco},
    {"dante", "a Dante encoder: MPEG-4", runDante},
    {"pushin", "a recorder process that pushes into a local socket", runPushIn},
    {"rtp", "a camera that sends RTP video to a port", runRtp},
    {"rtsp", "an RTSP camera: video, audio, metadata", runRtsp},
    {"ts", "a sender of MPEG transport streams, unicast or multicast", runTs},
    {"samsung", "a Samsung DVR: MPEG-4 or motion JPEG", runSamsung},
    {"vsip", "a Verint device: MPEG-4 or motion JPEG, keep-alive page", runVsip},
};
const unsigned kProtocolCount = sizeof kProtocols / sizeof kProtocols[0];
