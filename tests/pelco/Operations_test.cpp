#include <axis2_client.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <functional>
#include <future>
#include <mutex>
#include <thread>

#include "SoapTest.h"
#include "axis2_stub_StreamControl.h"
#include "axis2_stub_VideoOutput.h"
#include "support/TcpPeer.h"

using testing::HasSubstr;
using testing::Not;
using testsupport::PeerConnection;
using testsupport::TcpPeer;

namespace {

std::string http(const std::string& status, const std::string& body,
                 const std::string& headers = "") {
  return "HTTP/1.1 " + status + "\r\nContent-Type: text/xml\r\n" + headers +
         "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}
std::string soap(const std::string& body) {
  return "<?xml version=\"1.0\"?><s:Envelope xmlns:s=\"http://schemas.xmlsoap.org/soap/envelope/\">"
         "<s:Header/><s:Body>" +
         body + "</s:Body></s:Envelope>";
}
const char* const kRefreshed = "<u:RefreshSessionResponse xmlns:u=\"urn:any\"/>";

// A device that gives its answers in order, one a request, over as many connections as it is asked.
class ScriptedDevice {
 public:
  explicit ScriptedDevice(std::vector<std::string> answers, bool hangsUp = false)
      : answers_(std::move(answers)), thread_([this, hangsUp] { play(hangsUp); }) {}
  ~ScriptedDevice() { end(); }

  std::string address() const {
    return "http://127.0.0.1:" + std::to_string(peer_.port()) + "/control/VideoOutput-1";
  }
  int port() const { return peer_.port(); }
  // Once the last answer is out.
  std::vector<std::string> requests() {
    end();
    return requests_;
  }
  int connections() const { return connections_; }

 private:
  void play(bool hangsUp) {
    std::size_t next = 0;
    while (next < answers_.size()) {
      PeerConnection connection = peer_.accept();
      if (!connection.open()) break;
      ++connections_;
      while (next < answers_.size()) {
        const std::string head = connection.readUntil("\r\n\r\n");
        if (head.empty()) break;
        const auto length = head.find("Content-Length: ");
        const std::size_t size =
            length == std::string::npos ? 0 : std::stoul(head.substr(length + 16));
        requests_.push_back(head + connection.read(size));
        connection.write(answers_[next++]);
        if (hangsUp) break;
      }
    }
  }
  void end() {
    if (thread_.joinable()) thread_.join();
  }

  const std::vector<std::string> answers_;
  TcpPeer peer_;
  std::vector<std::string> requests_;
  int connections_ = 0;
  std::thread thread_;
};

class PelcoOperations : public SoapTest {
 protected:
  ~PelcoOperations() override { axis2_stub_free(stub_, env()); }
  axis2_options_t* options() { return axis2_stub_get_options(stub_, env()); }

  axis2_stub_t* connect(const std::string& address) {
    axis2_stub_free(stub_, env());
    stub_ = axis2_stub_create_VideoOutput(env(), "/nonexistent", address.c_str());
    return stub_;
  }
  bool refresh() {
    adb_RefreshSession_t* request = adb_RefreshSession_create_with_values(env(), "17", 30);
    adb_RefreshSessionResponse_t* response =
        axis2_stub_op_VideoOutput_RefreshSession(stub_, env(), request);
    adb_RefreshSession_free(request, env());
    if (response == nullptr) return false;
    adb_RefreshSessionResponse_free(response, env());
    return true;
  }
  axis2_status_t trial() {
    return axis2_svc_client_send_robust(axis2_stub_get_svc_client(stub_, env()), env(), nullptr);
  }

 private:
  axis2_stub_t* stub_ = nullptr;
};

TEST_F(PelcoOperations, CallsKeepTheConnectionAndSendTheirOwnActions) {
  ScriptedDevice device({http("200 OK", soap(kRefreshed)),
                         http("200 OK", soap("<DisconnectResponse><asyncId>3</asyncId>"
                                             "</DisconnectResponse>")),
                         http("200 OK", soap(kRefreshed))});
  axis2_stub_t* stub = connect(device.address());
  EXPECT_TRUE(refresh()) << error();
  adb_Disconnect_t* request = adb_Disconnect_create_with_values(env(), "17", 0);
  adb_DisconnectResponse_t* response = axis2_stub_op_VideoOutput_Disconnect(stub, env(), request);
  ASSERT_NE(response, nullptr) << error();
  EXPECT_EQ(adb_DisconnectResponse_get_asyncId(response, env()), 3);
  adb_DisconnectResponse_free(response, env());
  adb_Disconnect_free(request, env());
  // An action of the caller's own stays, during the call and behind it.
  axutil_string_t* own = axutil_string_create(env(), "urn:own");
  axis2_options_set_soap_action(options(), env(), own);
  axutil_string_free(own, env());
  EXPECT_TRUE(refresh()) << error();
  EXPECT_NE(axis2_options_get_soap_action(options(), env()), nullptr);

  const auto requests = device.requests();
  ASSERT_EQ(requests.size(), 3U);
  EXPECT_EQ(device.connections(), 1);
  const std::string service = "urn:schemas-pelco-com:service:VideoOutput:1";
  EXPECT_THAT(requests[0], HasSubstr("POST /control/VideoOutput-1 HTTP/1.1\r\n"));
  EXPECT_THAT(requests[0], HasSubstr("Content-Type: text/xml; charset=UTF-8\r\n"));
  EXPECT_THAT(requests[0], HasSubstr("SOAPAction: \"" + service + "#RefreshSession\"\r\n"));
  EXPECT_THAT(requests[0],
              HasSubstr("<soapenv:Body><n:RefreshSession xmlns:n=\"" + service +
                        "\"><sessionId>17</sessionId><refreshInterval>30</refreshInterval>"
                        "</n:RefreshSession></soapenv:Body>"));
  EXPECT_THAT(requests[0], Not(HasSubstr("Expect:")));
  EXPECT_THAT(requests[1], HasSubstr("SOAPAction: \"" + service + "#Disconnect\"\r\n"));
  EXPECT_THAT(requests[2], HasSubstr("SOAPAction: \"urn:own\"\r\n"));
}

TEST_F(PelcoOperations, ADeviceThatHangsUpIsConnectedAnew) {
  ScriptedDevice device({http("200 OK", soap(kRefreshed)), http("200 OK", soap(kRefreshed))}, true);
  connect(device.address());
  EXPECT_TRUE(refresh()) << error();
  EXPECT_TRUE(refresh()) << error();
  device.requests();
  EXPECT_EQ(device.connections(), 2);
}

TEST_F(PelcoOperations, FailuresLeaveTheirReasonInTheEnvironment) {
  std::string deep;
  for (int i = 0; i < 50000; ++i) deep += "<a>";
  const std::string lol =
      "<?xml version=\"1.0\"?><!DOCTYPE l [<!ENTITY a \"aaaaaaaaaa\"><!ENTITY b "
      "\"&a;&a;&a;&a;&a;&a;&a;&a;\"><!ENTITY f SYSTEM \"file:///etc/passwd\">]>";
  const struct {
    const char* about;
    std::string answer, text;
  } cases[] = {
      {"fault of a UPnP device",
       http("500 Internal Server Error",
            soap("<s:Fault><faultcode>s:Client</faultcode><faultstring>UPnPError</faultstring>"
                 "<detail><UPnPError>\n <errorCode>402</errorCode>\n "
                 "<errorDescription>Invalid Args</errorDescription>\n</UPnPError></detail>"
                 "</s:Fault>")),
       "SOAP fault s:Client: UPnPError (402 Invalid Args)"},
      {"fault with status 200", http("200 OK", soap("<s:Fault>gone\x0d\nwrong</s:Fault>")),
       "SOAP fault: gone wrong"},
      {"no such service", http("404 Not Found", "<html>no</html>"), "HTTP status 404"},
      {"login needed", http("401 Unauthorized", ""), "HTTP status 401: login refused"},
      {"proxy's login needed", http("407 Proxy Authentication Required", ""),
       "HTTP status 407: login refused"},
      {"another response", http("200 OK", soap("<QueryResponse/>")),
       "Failed in building adb object for RefreshSessionResponse : Expected "
       "RefreshSessionResponse but returned QueryResponse"},
      {"empty body", http("200 OK", soap("")), "The answer's body is empty"},
      {"no envelope", http("200 OK", "<Body/>"), "Answer is not a SOAP envelope with a body"},
      {"cut off", http("200 OK", soap(kRefreshed).substr(0, 120)), "Invalid XML: "},
      {"entities", http("200 OK", lol + "<l>&b;&f;</l>"),
       "Invalid XML: a document type is not allowed"},
      {"too deep", http("200 OK", soap(deep)), "Invalid XML: "},
      {"too large", http("200 OK", std::string(300000, ' ')), "Answer of more than 262144 bytes"},
      {"not HTTP", "SSH-2.0-x\r\n\r\n", ""},
      {"header cut off", "HTTP/1.1 200 OK\r\nContent-Length: 99\r\n\r\n<s:Env",
       "Error to read from socket: "},
      {"hangs up at once", "", "Server closed connection without an answer"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.about);
    ScriptedDevice device({c.answer}, true);
    connect(device.address());
    EXPECT_FALSE(refresh());
    EXPECT_EQ(error().substr(0, c.text.size()), c.text);
    EXPECT_THAT(log(), HasSubstr(error()));
  }
  EXPECT_THAT(log(), HasSubstr("NULL returnted from the adb_RefreshSessionResponse_deserialize: "
                               "This should be due to an invalid XML"));
}

TEST_F(PelcoOperations, ManyAttributesCostNoSeconds) {
  std::string flood = "<s:x";
  for (int i = 0; flood.size() < 130000; ++i) flood += " a" + std::to_string(i) + "=''";
  ScriptedDevice device({http("200 OK", soap(flood + "/>"))});
  connect(device.address());
  const std::clock_t begin = std::clock();  // not the wall: other tests share the machine
  EXPECT_FALSE(refresh());
  EXPECT_LT(std::clock() - begin, 2 * CLOCKS_PER_SEC);
}

TEST_F(PelcoOperations, AMuteDeviceIsLeftAfterTheTimeLimit) {
  TcpPeer device;
  auto played = std::async(std::launch::async, [&] {
    PeerConnection connection = device.accept();
    connection.readUntil("</soapenv:Envelope>");
    connection.write(http("200 OK", soap(kRefreshed)));
    return connection.awaitClose();
  });
  connect("http://127.0.0.1:" + std::to_string(device.port()) + "/");
  EXPECT_TRUE(refresh());
  axis2_options_set_timeout_in_milli_seconds(options(), env(), 200);
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_FALSE(refresh());
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
  EXPECT_EQ(error(), "Error to read from socket: no answer within 200 ms");
  EXPECT_TRUE(played.get());
}

TEST_F(PelcoOperations, TheTrialCallTellsWhichLoginIsWanted) {
  const struct {
    const char *challenge, *type;
  } cases[] = {{"WWW-Authenticate: Basic realm=\"Digest cameras\"\r\n", "Basic"},
               {"WWW-Authenticate: Basic realm=\"x\"\r\nWWW-Authenticate: Digest realm=\"x\", "
                "nonce=\"1\"\r\n",
                "Digest"},
               {"WWW-Authenticate: NTLM\r\n", "ntlm"},
               {"", nullptr}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.challenge);
    ScriptedDevice device({http("401 Unauthorized", "", c.challenge)});
    axis2_stub_t* stub = connect(device.address());
    axis2_options_set_http_auth_info(options(), env(), "admin", "secret", "Basic");
    axis2_options_set_test_http_auth(options(), env(), AXIS2_TRUE);
    EXPECT_EQ(trial(), AXIS2_FAILURE);
    axis2_svc_client_t* client = axis2_stub_get_svc_client(stub, env());
    EXPECT_TRUE(axis2_svc_client_get_http_auth_required(client, env()));
    EXPECT_FALSE(axis2_svc_client_get_proxy_auth_required(client, env()));
    EXPECT_STREQ(axis2_svc_client_get_auth_type(client, env()), c.type);
    const auto requests = device.requests();
    EXPECT_THAT(requests.at(0), HasSubstr("<soapenv:Body/>"));
    EXPECT_THAT(requests.at(0), Not(HasSubstr("Authorization")));
  }
}

TEST_F(PelcoOperations, AProxyGetsItsOwnLogin) {
  ScriptedDevice proxy(
      {http("407 Proxy Authentication Required", "", "Proxy-Authenticate: Basic realm=\"p\"\r\n"),
       http("200 OK", soap(kRefreshed))});
  axis2_stub_t* stub = connect("http://camera.invalid:49152/control/VideoOutput-1");
  axis2_svc_client_t* client = axis2_stub_get_svc_client(stub, env());
  std::string host = "127.0.0.1";
  std::string port = std::to_string(proxy.port());
  axis2_svc_client_set_proxy(client, env(), host.data(), port.data());
  axis2_options_set_test_proxy_auth(options(), env(), AXIS2_TRUE);
  trial();
  EXPECT_TRUE(axis2_svc_client_get_proxy_auth_required(client, env()));
  EXPECT_FALSE(axis2_svc_client_get_http_auth_required(client, env()));
  axis2_options_set_proxy_auth_info(options(), env(), "admin", "secret",
                                    axis2_svc_client_get_auth_type(client, env()));
  axis2_options_set_http_auth_info(options(), env(), "user", "other", "Basic");
  axis2_options_set_test_proxy_auth(options(), env(), AXIS2_FALSE);
  EXPECT_TRUE(refresh()) << error();
  const auto requests = proxy.requests();
  ASSERT_EQ(requests.size(), 2U);
  EXPECT_THAT(requests[1], HasSubstr("POST http://camera.invalid:49152/control/VideoOutput-1 "));
  EXPECT_THAT(requests[1], HasSubstr("Proxy-Authorization: Basic YWRtaW46c2VjcmV0\r\n"));
  EXPECT_THAT(requests[1], HasSubstr("\r\nAuthorization: Basic dXNlcjpvdGhlcg==\r\n"));
}

struct Outcome {
  std::promise<std::string> text;
  std::thread::id thread;
};

axis2_status_t onComplete(const axutil_env_t* env, adb_PlayResponse_t* response, void* data) {
  auto* outcome = static_cast<Outcome*>(data);
  outcome->thread = std::this_thread::get_id();
  const int pos = adb_PlayResponse_get_streamPos(response, env);
  adb_PlayResponse_free(response, env);
  outcome->text.set_value("position " + std::to_string(pos));
  return AXIS2_SUCCESS;
}

axis2_status_t onError(const axutil_env_t* env, int exception, void* data) {
  const std::string text = axutil_error_get_message(env->error);
  static_cast<Outcome*>(data)->text.set_value(exception == 0 ? "no code" : text);
  return AXIS2_SUCCESS;
}

TEST_F(PelcoOperations, CallbacksRunOnAThreadOfTheirOwn) {
  ScriptedDevice device(
      {http("200 OK", soap("<PlayResponse><streamPos>5</streamPos></PlayResponse>")),
       http("200 OK", soap("<PauseResponse/>")), http("503 Busy", "")});
  axis2_stub_t* stub = axis2_stub_create_StreamControl(env(), nullptr, device.address().c_str());
  adb_Play_t* request = adb_Play_create_with_values(env(), "17", 1.0F, 65536, "0", 0);
  const char* const expected[] = {"position 5",
                                  "Failed in building adb object for PlayResponse : Expected "
                                  "PlayResponse but returned PauseResponse",
                                  "HTTP status 503"};
  for (const char* text : expected) {
    Outcome outcome;
    auto done = outcome.text.get_future();
    axis2_stub_start_op_StreamControl_Play(stub, env(), request, &outcome, onComplete, onError);
    ASSERT_EQ(done.wait_for(testsupport::kPatience), std::future_status::ready);
    EXPECT_EQ(done.get(), text);
    EXPECT_NE(outcome.thread, std::this_thread::get_id());
  }
  adb_Play_free(request, env());
  axis2_stub_free(stub, env());
  EXPECT_THAT(device.requests().at(0), HasSubstr("StreamControl:1#Play\"\r\n"));
}

}  // namespace
