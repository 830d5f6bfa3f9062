#include <CLI/CLI.hpp>
#include <cstdio>
#include <thread>

#include "HttpCamera.h"

namespace {

void addMediaOptions(CLI::App& app, CameraOptions& camera) {
  app.add_option("--format", camera.clip.format, "mjpg, mpeg4, h264, mpeg2 or audio");
  app.add_option("--width", camera.clip.width, "picture width");
  app.add_option("--height", camera.clip.height, "picture height");
  app.add_option("--seconds", camera.clip.seconds, "length of the clip, which is repeated");
  app.add_option("--file", camera.file, "elementary stream to send instead of a made clip");
  app.add_option("--fps", camera.fps,
                 "frames (or 240-byte audio blocks) a second; 0: as fast as it goes");
  app.add_option("--length", camera.length,
                 "header with a frame's length: Content-Length, Content-length, DataLen, none");
  app.add_option("--trigger", camera.trigger, "trigger name in each frame's header");
  app.add_option("--content-type", camera.contentType, "of audio, for instance audio/G723");
  app.add_flag("--multipart", camera.multipart, "audio in parts");
  app.add_flag("--bosch", camera.perRequest, "one JPEG a GET on a kept connection");
}

void addLoginOptions(CLI::App& app, LoginOptions& login) {
  app.add_option("--auth", login.scheme, "none, basic or digest");
  app.add_option("--user", login.user, "user name (admin)");
  app.add_option("--password", login.password, "password (secret)");
  app.add_option("--realm", login.realm, "realm (camsim)");
  app.add_option("--qop", login.qop, "qop list of the Digest challenge, for instance auth");
  app.add_option("--opaque", login.opaque, "opaque text of the Digest challenge");
  app.add_option("--algorithm", login.algorithm, "algorithm of the Digest challenge");
  app.add_option("--nonce-uses", login.nonceUses, "requests before a nonce is stale; 0: no end");
}

void addFaultOptions(CLI::App& app, CameraOptions& camera) {
  app.add_option("--status", camera.status, "status line (HTTP/1.0 200 OK)");
  app.add_option("--drop-after", camera.dropAfter, "close behind so many frames");
  app.add_option("--cut-inside", camera.cutInside, "close in the middle of that frame, from 0");
  app.add_option("--stall-after", camera.stallAfter, "go silent behind so many frames");
  app.add_option("--drip", camera.bytesPerWrite, "send so many bytes a millisecond");
  app.add_flag("--garbage", camera.garbage, "send noise instead of a body");
  app.add_flag("--mute", camera.mute, "take the request and say nothing");
  app.add_flag("--hang-up", camera.hangUp, "close each connection at once");
  app.add_flag("--endless-header", camera.endlessHeader, "header lines without end");
}

}  // namespace

int runHttp(int argc, char** argv) {
  CLI::App app("Plays a camera that streams over HTTP: a 352x288 test picture at 25 frames/s.",
               "camsim http");
  CameraOptions camera;
  LoginOptions login;
  camera.clip.format = "mjpg";
  app.add_option("--address", camera.address, "address to listen on (127.0.0.1)");
  app.add_option("--port", camera.port, "port to listen on (80); 0: any free one");
  addMediaOptions(app, camera);
  addLoginOptions(app, login);
  addFaultOptions(app, camera);
  CLI11_PARSE(app, argc, argv);

  HttpCamera device(camera, login);
  const Kelvane::UniqueFd listener = listenTcp(camera.address, camera.port);
  printf("listening on %s:%d\n", camera.address.c_str(), boundPort(listener));
  while (true) {
    std::thread([&device, connection = acceptTcp(listener)] { device.serve(connection); }).detach();
  }
}
