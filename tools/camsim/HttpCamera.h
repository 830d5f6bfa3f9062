#pragma once

#include <string>
#include <vector>

#include "Clip.h"
#include "HttpLogin.h"
#include "Net.h"

// What a simulated HTTP camera streams, and what goes wrong with it.
struct CameraOptions {
  std::string address = "127.0.0.1";
  int port = 80;
  ClipOptions clip;  // format "audio" streams audio
  std::string file;  // elementary stream to use instead of a made clip
  double fps = 25;   // frames or audio blocks per second; 0: as fast as it goes
  std::string length = "Content-Length";  // the frame header with the length; "none": no length
  std::string trigger;                    // a trigger name in each frame's header
  std::string contentType = "audio/basic";
  bool multipart = false;   // audio in parts
  bool perRequest = false;  // one JPEG per GET on a kept connection
  std::string status = "HTTP/1.0 200 OK";
  int dropAfter = -1;    // closes behind so many frames
  int cutInside = -1;    // closes in the middle of that frame, from 0
  int stallAfter = -1;   // goes silent behind so many frames
  bool garbage = false;  // noise instead of a body
  bool mute = false;     // takes the request and says nothing
  bool hangUp = false;   // closes at once
  bool endlessHeader = false;
  int bytesPerWrite = 0;  // slow drip: so many bytes a millisecond
};

// Plays one camera; every connection gets the same stream from its beginning.
class HttpCamera {
 public:
  // Makes the media. Throws std::runtime_error.
  HttpCamera(const CameraOptions& options, const LoginOptions& login);
  // Answers one connection until it ends. Called from a thread of its own.
  void serve(const Kelvane::UniqueFd& connection);

 private:
  bool answer(const Kelvane::UniqueFd& connection, const std::string& request);
  bool send(const Kelvane::UniqueFd& connection, const std::string& data) const;
  std::string responseHeader() const;
  bool stream(const Kelvane::UniqueFd& connection) const;
  bool sendItem(const Kelvane::UniqueFd& connection, const std::string& item, int number) const;
  void sendUnpaced(const Kelvane::UniqueFd& connection) const;
  bool hasFault() const;

  const CameraOptions options_;
  HttpLogin login_;
  std::vector<std::string> items_;  // frames or audio blocks with what stands around each
  std::string firstLength_;         // header line with the first frame's length
};
