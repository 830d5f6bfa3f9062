#include "ConfigCheck.h"

#include <algorithm>
#include <cstring>
#include <set>
#include <stdexcept>
#include <vector>

#include "Cfg.h"
#include "ProducerChoice.h"

namespace host {

using Kelvane::Cfg;
using Kelvane::ProducerChoice;

namespace {

using Kind = ProducerChoice::Kind;

constexpr unsigned bit(Kind kind) {
  return 1U << static_cast<unsigned>(kind);
}

constexpr unsigned kAll = ~0U;
constexpr unsigned kTcpVideo = bit(Kind::http) | bit(Kind::bosch);
constexpr unsigned kVendor = bit(Kind::samsung) | bit(Kind::dante) | bit(Kind::vsip);
constexpr unsigned kLogin = bit(Kind::rtsp) | kTcpVideo | kVendor | bit(Kind::pelco);
constexpr unsigned kFormat = kTcpVideo | kVendor | bit(Kind::pelco) | bit(Kind::rtsp) |
                             bit(Kind::rtp) | bit(Kind::transportStream) | bit(Kind::fake);

constexpr const char* kAnyText = nullptr;

// One key as the producers of `readers` use it. `needers` end the process
// without it. Numbers have their range, texts their choices (blank between
// them; a value that is none of them is taken, but does not do what it says).
struct Rule {
  const char* key;
  unsigned readers;
  unsigned needers;
  const char* choices = kAnyText;
  long least = 0;
  long most = 0;           // 0: not a number
  unsigned fractions = 0;  // those who take a number that is not whole
};

constexpr long kPort = 65535;

constexpr Rule kRules[] = {
    {"PROTO", kAll, kAll},
    {"CAMERAMODEL", kAll, kAll},
    {"DEVID", kAll, bit(Kind::pushIn)},
    {"OBJID", kAll, 0},
    {"MODELID", bit(Kind::rtsp) | bit(Kind::http) | bit(Kind::transportStream) | bit(Kind::pelco),
     bit(Kind::http) | bit(Kind::transportStream) | bit(Kind::pelco)},
    {"MEDIA_FORMAT", kFormat | bit(Kind::pushIn) | bit(Kind::test), kFormat},
    {"METADATA_PORT", kAll, 0, kAnyText, 1, kPort},
    {"STREAM_PROBE", kAll, 0, kAnyText, 0, 1000000},
    {"FRAMERATE", kAll, 0, kAnyText, 1, 1000, ~(bit(Kind::samsung) | bit(Kind::dante))},
    {"MASTER_NODE", bit(Kind::pushIn), 0},
    {"SNAPSHOT_MODE", kTcpVideo, 0, "on off"},
    {"DEVIP", kLogin, kLogin},
    {"USRNAME", kLogin, kLogin},
    {"PASSWD", kLogin, bit(Kind::rtsp) | bit(Kind::samsung) | bit(Kind::dante)},
    {"SOURCE", bit(Kind::fake), bit(Kind::fake)},
    {"RTSP_URL", bit(Kind::rtsp), bit(Kind::rtsp)},
    {"RTSP_PORT", bit(Kind::rtsp), 0, kAnyText, 1, kPort},
    {"RTP_OVER_TCP", bit(Kind::rtsp), bit(Kind::rtsp), "on off"},
    {"RTP_FORCE_MULTICAST", bit(Kind::rtsp), 0, "on off"},
    {"RTSP_KEEPALIVE", bit(Kind::rtsp), 0, "on off"},
    {"RTP_TIME", bit(Kind::rtsp), 0, "on off"},
    {"UDP_NO_STREAM_WARNING_TIMEOUT", bit(Kind::rtsp), 0, kAnyText, 0, 2147},
    {"AUDIO", bit(Kind::rtsp), 0, "on off"},
    {"VAE_ACTIVE", bit(Kind::rtsp), 0},
    {"VAE_EDVA_ACTIVE", bit(Kind::rtsp), 0, "yes no"},
    {"RTP_UNICAST_PORT", bit(Kind::rtp) | bit(Kind::transportStream), bit(Kind::rtp), kAnyText, 1,
     kPort},
    {"RTP_MULTICAST_PORT", bit(Kind::transportStream), 0, kAnyText, 1, kPort},
    {"MULTICAST_IP", bit(Kind::transportStream), 0},
    {"HTTP_URL", kTcpVideo, kTcpVideo},
    {"HTTP_PORT", kTcpVideo | bit(Kind::vsip), 0, kAnyText, 1, kPort},
    {"NO_FPS_LIMIT", bit(Kind::http), 0},
    {"IMAGESIZE", bit(Kind::samsung) | bit(Kind::dante), bit(Kind::samsung) | bit(Kind::dante)},
    {"CAMCOMPRESSION", bit(Kind::samsung) | bit(Kind::dante), bit(Kind::samsung) | bit(Kind::dante),
     kAnyText, 0, 5},
    {"CAMERA", bit(Kind::dante), bit(Kind::dante), kAnyText, 1, 64},
    {"RC_MODE", bit(Kind::dante), bit(Kind::dante)},
    {"RC_MAXBITRATE", bit(Kind::dante), bit(Kind::dante)},
    {"VSIP_PORT", bit(Kind::vsip), bit(Kind::vsip), kAnyText, 1, kPort},
    {"VSIP_TARGET_SIP", bit(Kind::vsip), bit(Kind::vsip)},
    {"VSIP_SOURCE_GUID", bit(Kind::vsip), bit(Kind::vsip)},
    {"VSIP_TARGET_GUID", bit(Kind::vsip), bit(Kind::vsip)},
    {"DEFINEDUID", bit(Kind::vsip), bit(Kind::vsip)},
    {"PELCO_SOAP_PORT", bit(Kind::pelco), bit(Kind::pelco), kAnyText, 1, kPort},
    {"AUDIO_DEVID", bit(Kind::pushIn), 0},
    {"HWID", bit(Kind::pushIn), 0},
};

// Formats that each producer serves.
const char* formatsOf(Kind kind) {
  switch (kind) {
    case Kind::http:
      return "mjpg mpeg2 mpeg4 h264 audio";
    case Kind::bosch:
      return "mjpg";
    case Kind::samsung:
    case Kind::vsip:
      return "mjpg mpeg4";
    case Kind::dante:
      return "mpeg4";
    case Kind::rtp:
    case Kind::fake:
      return "mjpg mpeg2 mpeg4 h264";
    default:
      return kAnyText;
  }
}

// Texts whose length a device's protocol limits.
struct Length {
  Kind reader;
  const char* key;
  std::size_t least;
  std::size_t most;
};

constexpr Length kLengths[] = {
    {Kind::samsung, "USRNAME", 1, 8},
    {Kind::samsung, "PASSWD", 0, 8},
    {Kind::vsip, "DEFINEDUID", 66, 4096},  // hexadecimal digits
};

bool isChoice(const char* choices, const std::string& value) {
  const std::string padded = " " + std::string(choices) + " ";
  return !value.empty() && padded.find(" " + value + " ") != std::string::npos;
}

class Check {
 public:
  explicit Check(Kind kind) : kind_(kind) {
    // What only one value of another key makes necessary.
    const auto is = [](const char* key, const char* value) {
      return Cfg::exist(key) && Cfg::value(key) == value;
    };
    if (kind == Kind::transportStream) {
      if (is("MODELID", "Multicast")) {
        needed_ = {"MULTICAST_IP", "RTP_MULTICAST_PORT"};
      } else {
        needed_ = {"RTP_UNICAST_PORT"};
      }
    }
    if (kind == Kind::rtsp && is("CAMERAMODEL", "MangoDSP")) needed_ = {"MODELID"};
    if (Cfg::exist("STREAM_PROBE") && !is("STREAM_PROBE", "0")) needed_.insert("OBJID");
    const bool loginUsed = Cfg::exist("USRNAME") && !Cfg::value("USRNAME").empty();
    if (loginUsed && (bit(kind) & kLogin) != 0) needed_.insert("PASSWD");
    if (kind == Kind::samsung) needed_.insert("FRAMERATE");
    if (kind == Kind::dante) needed_.insert("FRAMERATE");
  }

  void keys() {
    for (const Rule& rule : kRules) {
      const bool reads = (rule.readers & bit(kind_)) != 0;
      if (!reads) continue;
      if (!Cfg::exist(rule.key)) {
        if ((rule.needers & bit(kind_)) != 0 || needed_.count(rule.key) != 0) {
          problem(std::string("missing: ") + rule.key);
        }
        continue;
      }
      const std::string value = Cfg::value(rule.key);
      const bool secret = strcmp(rule.key, "PASSWD") == 0;
      line(std::string("reads: ") + rule.key + "=" + (secret ? "***" : value));
      judge(rule, value);
    }
  }

  void foreignKeys(const Settings& settings) {
    std::set<std::string> seen;
    for (const auto& [key, value] : settings) {
      if (!seen.insert(key).second) continue;
      const auto* rule = std::find_if(std::begin(kRules), std::end(kRules),
                                      [&name = key](const Rule& each) { return name == each.key; });
      if (rule == std::end(kRules)) {
        problem("unknown: " + key);
      } else if ((rule->readers & bit(kind_)) == 0) {
        line("not read: " + key);
      }
    }
  }

  ConfigReport report;

 private:
  void line(const std::string& text) { report.text += text + "\n"; }
  void problem(const std::string& text) {
    line(text);
    ++report.problems;
  }

  void judge(const Rule& rule, const std::string& value) {
    const char* choices = strcmp(rule.key, "MEDIA_FORMAT") == 0 ? formatsOf(kind_) : rule.choices;
    if (choices != kAnyText && !isChoice(choices, value)) {
      problem(std::string("out of range: ") + rule.key + "=" + value + " (" + choices + ")");
    }
    for (const Length& length : kLengths) {
      if (length.reader != kind_ || strcmp(length.key, rule.key) != 0) continue;
      if (value.size() >= length.least && value.size() <= length.most) continue;
      problem(std::string("out of range: ") + rule.key + " has " + std::to_string(value.size()) +
              " characters (" + std::to_string(length.least) + " to " +
              std::to_string(length.most) + ")");
    }
    if (rule.most == 0) return;
    const std::string range =
        " (" + std::to_string(rule.least) + " to " + std::to_string(rule.most) + ")";
    try {
      const bool whole = (rule.fractions & bit(kind_)) == 0;
      const double number = whole ? Cfg::i_value(rule.key) : Cfg::f_value(rule.key);
      if (number >= static_cast<double>(rule.least) && number <= static_cast<double>(rule.most)) {
        return;
      }
    } catch (const std::invalid_argument&) {  // no number at all
    }
    problem(std::string("out of range: ") + rule.key + "=" + value + range);
  }

  const Kind kind_;
  std::set<std::string> needed_;
};

}  // namespace

ConfigReport checkConfig(const Settings& settings) {
  for (const auto& [key, value] : settings) Cfg::insert(key, value);
  try {
    const ProducerChoice choice = Kelvane::chooseProducer();
    if (choice.kind == Kind::none) return {choice.keys + "\n1 problem\n", 1};
    Check check(choice.kind);
    check.report.text = std::string("producer: ") + Kelvane::producerName(choice.kind) +
                        "\nbecause: " + choice.keys + "\n";
    check.keys();
    check.foreignKeys(settings);
    const unsigned problems = check.report.problems;
    check.report.text +=
        problems == 0 ? "no problems\n"
                      : std::to_string(problems) + (problems == 1 ? " problem\n" : " problems\n");
    return check.report;
  } catch (const std::invalid_argument& absent) {
    return {std::string("missing: ") + absent.what() + "\n1 problem\n", 1};
  }
}

}  // namespace host
