#include "DanteMediaProducerImpl.h"

#include <unistd.h>

#include <array>
#include <cstring>
#include <string>

#include "Cfg.h"
#include "DeviceConnection.h"
#include "Exceptions.h"
#include "FailureReport.h"
#include "Retriever.h"
#include "SocketIo.h"
#include "UniqueFd.h"
#include "Wire.h"

namespace Kelvane {

using dante::_PACKHEADER;  // NOLINT(bugprone-reserved-identifier): the protocol's name
using dante::tagVENCODERPARAMSEX;

namespace {

void writeAll(int socket, const void* data, std::size_t size) {
  if (write(socket, data, size) <= 0) {
    const auto reason = last_error_message();
    FATAL_REPORT("CRT-5010 Failed write into socket: %s", reason->c_str());
  }
}

void receiveAnswer(int socket, void* to, std::size_t size) {
  if (receiveAll(socket, to, size) <= 0) {
    const auto reason = last_error_message();
    FATAL_REPORT("CRT-5010 Failed read from socket: %s", reason->c_str());
  }
}

// Channels count from 1 in the configuration and from 0 on the wire.
std::int32_t channel() {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(Cfg::i_value("CAMERA")) - 1U);
}

std::uint32_t configuredBitrate() {
  constexpr std::uint32_t kUnset = 500;
  const std::string text = Cfg::value("RC_MAXBITRATE");
  // Even "unlimited" is a limit for this device.
  if (text == "cam-defined" || text == "unlimited") return kUnset;
  return static_cast<std::uint32_t>(Cfg::i_value("RC_MAXBITRATE"));
}

dante::WantedParameters configuredParameters() {
  dante::WantedParameters wanted{};
  wanted.imageSize = Cfg::value("IMAGESIZE");
  wanted.constantBitrate = Cfg::value("RC_MODE") == "cbr";
  wanted.bitrate = configuredBitrate();
  wanted.compression = Cfg::i_value("CAMCOMPRESSION");
  wanted.frameRate = Cfg::i_value("FRAMERATE");
  return wanted;
}

void logParameters(const _PACKHEADER& header, const tagVENCODERPARAMSEX& parameters) {
  using P = tagVENCODERPARAMSEX;
  const auto& bytes = parameters.bytes;
  LOG_DEBUG(
      "Current config:\nchannelNum: %d\nvideosize: 0x%.2x\nvideostandard:  0x%.2x\nbitratepolicy: "
      "0x%.2x\nbitrate: %d\nvideoquality: 0x%.2x\nvideofps: %d\nvideoIInterval: %d\n",
      header.packInfo.cp.channelNum, bytes[P::kVideoSizeAt], bytes[P::kVideoStandardAt],
      bytes[P::kBitratePolicyAt], static_cast<int>(le32(&bytes[P::kBitrateAt])),
      bytes[P::kVideoQualityAt], bytes[P::kVideoFpsAt], bytes[P::kVideoIIntervalAt]);
}

}  // namespace

DanteMediaProducerImpl::DanteMediaProducerImpl(AbstractSink* audio, AbstractSink* video)
    : NETMediaProducerImpl(audio, video, nullptr) {}

bool DanteMediaProducerImpl::start() {
  LOG_DEBUG("Sending configure request to Dante...");
  sendConfRequest(get_conn(dante::kConfigurationPort));

  const int stream = get_conn(dante::kStreamPort);
  sendLogin(stream);
  const std::string format = Cfg::value("MEDIA_FORMAT");
  if (format != "mpeg4") FATAL_REPORT("CRT-5013 %s is not currently supported", format.c_str());
  receive_stream(stream);
  close(stream);
  LOG_INFO("Connection was lost...");
  return Retriever::instance(nullptr, nullptr, nullptr, nullptr)->isStopped();
}

int DanteMediaProducerImpl::get_conn(int port) {
  DeviceConnection connection = connectToDevice(Cfg::value("DEVIP"), port);
  if (!connection.failure.empty()) FATAL_REPORT("%s", connection.failure.c_str());
  return connection.socket.release();
}

void DanteMediaProducerImpl::sendConfRequest(int sockfd) {
  UniqueFd connection(sockfd);
  _PACKHEADER header{};
  header.packSize = _PACKHEADER::kSize;
  header.packType = dante::kReadParameters;
  header.packInfo.cp.channelNum = channel();
  dante::RawHeader bytes = dante::raw(header);
  writeAll(connection.get(), bytes.data(), bytes.size());

  tagVENCODERPARAMSEX parameters;
  receiveAnswer(connection.get(), bytes.data(), bytes.size());
  receiveAnswer(connection.get(), parameters.bytes.data(), parameters.bytes.size());
  header = dante::parse(bytes);
  logParameters(header, parameters);

  // The rest of the header goes back as the device sent it.
  header.packType = dante::kWriteParameters;
  bytes = dante::raw(header);
  dante::apply(configuredParameters(), parameters);
  std::array<std::uint8_t, _PACKHEADER::kSize + tagVENCODERPARAMSEX::kSize> message;
  memcpy(message.data(), bytes.data(), bytes.size());
  memcpy(message.data() + bytes.size(), parameters.bytes.data(), parameters.bytes.size());

  // The device takes parameters on a fresh connection only.
  connection.reset();
  connection.reset(get_conn(dante::kConfigurationPort));
  writeAll(connection.get(), message.data(), message.size());
  dante::RawHeader answer;
  if (read(connection.get(), answer.data(), answer.size()) <= 0) {
    const auto reason = last_error_message();
    FATAL_REPORT("CRT-5010 Failed to read from socket: %s\n", reason->c_str());
  }
}

void DanteMediaProducerImpl::sendLogin(int sockfd) {
  LOG_DEBUG("Sending login request to Dante...");
  const std::int32_t camera = channel();
  const std::string user = Cfg::value("USRNAME");
  const std::string password = Cfg::value("PASSWD");
  const std::string request = dante::loginRequest(camera, user, password);
  writeAll(sockfd, request.data(), request.size());
  LOG_DEBUG("Request sent success");
}

}  // namespace Kelvane
