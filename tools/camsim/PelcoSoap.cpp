#include "PelcoSoap.h"

#include <map>

namespace pelco {

namespace {

struct Fixed {
  const char* service;
  const char* body;
};

// Operations whose answers do not depend on a session.
const std::map<std::string, Fixed> kFixed = {
    {"GetStreamPriority", {"VideoOutput", "<streamCatalog/>"}},
    {"SetStreamPriority", {"VideoOutput", ""}},
    {"RefreshSession", {"VideoOutput", ""}},
    {"Disconnect", {"VideoOutput", "<asyncId>0</asyncId>"}},
    {"Play", {"StreamControl", "<streamPos>0</streamPos>"}},
    {"Reverse", {"StreamControl", "<streamPos>0</streamPos>"}},
    {"FrameAdvance", {"StreamControl", "<streamPos>1</streamPos>"}},
    {"FrameReverse", {"StreamControl", "<streamPos>0</streamPos>"}},
    {"Pause", {"StreamControl", ""}},
    {"MarkEvent", {"StreamControl", ""}},
    {"Seek", {"StreamControl", "<seekTime>2011-03-04T05:06:07</seekTime>"}},
    {"SeekEvent", {"StreamControl", "<seekTime>2011-03-04T05:06:07</seekTime>"}},
    {"ResetConfiguration", {"CameraConfiguration", ""}},
    {"SetConfiguration", {"CameraConfiguration", ""}},
    {"GetConfiguration",
     {"CameraConfiguration",
      "<cameraConfig><cameraAddress>1</cameraAddress><motionDetectionEnable>0"
      "</motionDetectionEnable><audioEnable>0</audioEnable><termination>0</termination>"
      "<ttl>16</ttl><packetsize>1400</packetsize><localQuality>1</localQuality></cameraConfig>"}},
};

// No session yet: the stream as the catalogue shows it.
std::string streamParameters(const Session& session) {
  const std::string id = std::to_string(session.id);
  std::string xml =
      "<streamParameters>\n <displayName>Primary &amp; only</displayName>\n"
      " <preAlarmDurationInManualRecord>0</preAlarmDurationInManualRecord>\n"
      " <streamSession>\n  <sourceURI>uuid:691fa4a2-d0b1-11e0-9572-0800200c9a66</sourceURI>\n";
  if (!session.transport.empty()) xml += "  <transportURL>" + session.transport + "</transportURL>";
  if (session.id != 0) xml += "  <sessionId>" + id + "</sessionId>\n";
  xml += "  <iFrameOnly>0</iFrameOnly>\n  <refreshInterval>" +
         std::to_string(session.refreshInterval) + "</refreshInterval>\n </streamSession>\n" +
         " <videoQuality><framerate>25.0</framerate><bitrate>2000</bitrate>"
         "<videosize>4</videosize><tvformat>1</tvformat><gop>25.0</gop></videoQuality>\n"
         "</streamParameters>";
  return xml;
}

std::string response(const std::string& service, const std::string& operation,
                     const std::string& body) {
  return "<u:" + operation + "Response xmlns:u=\"urn:schemas-pelco-com:service:" + service +
         ":1\">\n" + body + "\n</u:" + operation + "Response>";
}

}  // namespace

std::string textOf(const std::string& document, const std::string& localName) {
  for (auto at = document.find(localName); at != std::string::npos;
       at = document.find(localName, at + 1)) {
    const bool starts = at > 0 && (document[at - 1] == '<' || document[at - 1] == ':');
    const auto end = at + localName.size();
    if (!starts || end >= document.size() || document[end] != '>') continue;
    return document.substr(end + 1, document.find('<', end) - end - 1);
  }
  return "";
}

std::string operationOf(const std::string& envelope) {
  auto at = envelope.find("Body>");
  at = at == std::string::npos ? at : envelope.find('<', at);
  if (at == std::string::npos || envelope[at + 1] == '/') return "";
  std::string name = envelope.substr(at + 1, envelope.find_first_of(" />", at + 1) - at - 1);
  return name.substr(name.find(':') + 1);
}

std::string envelope(const std::string& body) {
  return "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
         "<SOAP-ENV:Envelope xmlns:SOAP-ENV=\"http://schemas.xmlsoap.org/soap/envelope/\" "
         "SOAP-ENV:encodingStyle=\"http://schemas.xmlsoap.org/soap/encoding/"
         "\">\n<SOAP-ENV:Body>\n" +
         body + "\n</SOAP-ENV:Body>\n</SOAP-ENV:Envelope>\n";
}

std::string fault(int code, const std::string& description) {
  return envelope(
      "<SOAP-ENV:Fault><faultcode>SOAP-ENV:Client</faultcode>"
      "<faultstring>UPnPError</faultstring><detail><UPnPError "
      "xmlns=\"urn:schemas-upnp-org:control-1-0\">\n<errorCode>" +
      std::to_string(code) + "</errorCode>\n<errorDescription>" + description +
      "</errorDescription>\n</UPnPError></detail></SOAP-ENV:Fault>");
}

std::string answer(const std::string& operation, const Session& session, int sessions,
                   bool streams) {
  const auto fixed = kFixed.find(operation);
  if (fixed != kFixed.end()) return response(fixed->second.service, operation, fixed->second.body);
  const auto video = [&](const std::string& body) {
    return response("VideoOutput", operation, body);
  };
  if (operation == "Query") {
    return video("<streamCatalog><entries>" + (streams ? streamParameters(session) : "") +
                 "</entries></streamCatalog>");
  }
  if (operation == "Connect" || operation == "GetSessionParameters") {
    return video(streamParameters(session));
  }
  if (operation == "GetActiveSessions") {
    return video("<activeSessions>" + std::to_string(sessions) +
                 "</activeSessions><maxSessions>4</maxSessions>");
  }
  if (operation == "GetActiveSessionIds") {
    return video("<sessionIds><session>" + std::to_string(session.id) + "</session></sessionIds>");
  }
  return "";
}

std::string hostile(const std::string& kind) {
  if (kind == "entities") {
    return "<?xml version=\"1.0\"?><!DOCTYPE l [<!ENTITY a \"aaaaaaaaaa\"><!ENTITY b "
           "\"&a;&a;&a;&a;&a;&a;&a;&a;\"><!ENTITY c SYSTEM \"file:///etc/passwd\">]>" +
           envelope("<l>&b;&c;</l>").substr(39);
  }
  if (kind == "deep") {
    std::string tags;
    for (int i = 0; i < 50000; ++i) tags += "<a>";
    return envelope(tags);
  }
  if (kind == "flood") return envelope(std::string(4000000, ' '));
  return envelope("<u:QueryResponse>").substr(0, 200);  // malformed: cut off
}

}  // namespace pelco
