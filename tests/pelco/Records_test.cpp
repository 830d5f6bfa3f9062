#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "SoapTest.h"
#include "adb_CameraConfiguration.h"
#include "adb_StreamControl.h"
#include "adb_VideoOutput.h"
#include "internal.h"

using testing::HasSubstr;
using testing::Not;

namespace {

#define BOTH(name) &adb_type_##name, &adb_type_##name##Response
const adb_type_t* const kMessages[] = {BOTH(Connect),
                                       BOTH(GetActiveSessionIds),
                                       BOTH(GetActiveSessions),
                                       BOTH(RefreshSession),
                                       BOTH(Query),
                                       BOTH(GetStreamPriority),
                                       BOTH(GetSessionParameters),
                                       BOTH(Disconnect),
                                       BOTH(SetStreamPriority),
                                       BOTH(FrameReverse),
                                       BOTH(MarkEvent),
                                       BOTH(SeekEvent),
                                       BOTH(Reverse),
                                       BOTH(Seek),
                                       BOTH(FrameAdvance),
                                       BOTH(Pause),
                                       BOTH(Play),
                                       BOTH(GetConfiguration),
                                       BOTH(ResetConfiguration),
                                       BOTH(SetConfiguration)};
#undef BOTH

class PelcoRecords : public SoapTest {
 protected:
  // The element of a text; the document lives as long as the test.
  axiom_node_t* parse(const std::string& text) {
    std::string why;
    documents_.push_back(axis2c::parse(text, why));
    EXPECT_EQ(why, "") << text;
    return axis2c::toNode(xmlDocGetRootElement(documents_.back().get()));
  }
  std::string text(adb_record_t* record) {
    axiom_node_t* node = adb_serialize(record, env(), nullptr);
    if (node == nullptr) return "not written: " + error();
    axis2_char_t* written = axiom_node_to_string(node, env());
    std::string result = written;
    AXIS2_FREE(env()->allocator, written);
    axiom_node_free_tree(node, env());
    return result;
  }
  void* item(const adb_field_t& field, bool all) {
    if (field.kind == ADB_RECORD) return filled(field.type, all);
    if (field.kind == ADB_URI) return axutil_uri_parse_string(env(), "rtp://10.0.0.9:5004/a?b#c");
    return const_cast<char*>("a <b> & \"c\" \xc3\xa4");
  }
  // Every field set, or only the required ones.
  adb_record_t* filled(const adb_type_t* type, bool all) {
    adb_record_t* record = adb_create(type, env());
    for (unsigned at = 0; at < type->count; ++at) {
      const adb_field_t& field = type->fields[at];
      if (!all && field.occurs != ADB_REQUIRED) continue;
      for (int i = 0; field.occurs == ADB_LIST && i < 3; ++i) {
        adb_add(record, env(), at, item(field, all));
      }
      if (field.occurs == ADB_LIST) continue;
      adb_value_t value{};
      if (field.kind >= ADB_STRING) value.p = item(field, all);
      if (field.kind == ADB_INT) value.i = -2147483647 - 1;
      if (field.kind == ADB_BOOL) value.i = AXIS2_TRUE;
      if (field.kind == ADB_UNSIGNED) value.u = 4294967295U;
      if (field.kind == ADB_FLOAT) value.f = 0.1F;
      if (field.kind == ADB_DOUBLE) value.d = 29.97002997002997;
      EXPECT_EQ(adb_set(record, env(), at, value), AXIS2_SUCCESS);
    }
    return record;
  }

 private:
  std::vector<axis2c::Document> documents_;
};

TEST_F(PelcoRecords, EveryMessageSurvivesTheRoundTrip) {
  for (const adb_type_t* type : kMessages) {
    for (const bool all : {false, true}) {
      SCOPED_TRACE(type->name);
      adb_record_t* sent = filled(type, all);
      const std::string written = text(sent);
      EXPECT_THAT(written, HasSubstr(std::string(type->name) + " xmlns:n=\"" + type->ns + "\""));
      adb_record_t* received = adb_create(type, env());
      axiom_node_t* node = parse(written);
      EXPECT_EQ(adb_deserialize(received, env(), &node), AXIS2_SUCCESS) << error();
      EXPECT_EQ(text(received), written);
      // Once more into the same record: what it held is freed.
      EXPECT_EQ(adb_deserialize(received, env(), &node), AXIS2_SUCCESS) << error();
      adb_free(sent, env());
      adb_free(received, env());
    }
  }
}

TEST_F(PelcoRecords, ReadsForeignPrefixesOrderAndUnknownElements) {
  axiom_node_t* node = parse(R"(<?xml version="1.0"?>
    <!-- a device with habits -->
    <QueryResponse xmlns="urn:x" xmlns:p="urn:y" xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance">
      <p:asyncId> +7 </p:asyncId>
      <vendorExtension><streamCatalog/></vendorExtension>
      <p:streamCatalog><entries>
        text between
        <p:streamParameters>
          <q:streamSession xmlns:q="urn:z">
            <refreshInterval>30</refreshInterval>
            <iFrameOnly>false</iFrameOnly>
            <sessionId>a<!-- split -->b<![CDATA[<c>]]></sessionId>
            <transportURL xsi:nil="true">rtp://ignored:1</transportURL>
            <outputURI>uuid:691fa4a2:no port at all</outputURI>
            <clients>many</clients>
          </q:streamSession>
          <displayName/>
          <preAlarmDurationInManualRecord>0</preAlarmDurationInManualRecord>
        </p:streamParameters>
        <unknown/>
        <streamParameters>
          <preAlarmDurationInManualRecord>5</preAlarmDurationInManualRecord>
          <streamSession><iFrameOnly>1</iFrameOnly><refreshInterval>9</refreshInterval></streamSession>
        </streamParameters>
      </entries></p:streamCatalog>
    </QueryResponse>)");
  adb_QueryResponse_t* response = adb_QueryResponse_create(env());
  ASSERT_EQ(adb_QueryResponse_deserialize(response, env(), &node, nullptr, AXIS2_FALSE),
            AXIS2_SUCCESS)
      << error();
  EXPECT_EQ(
      text(reinterpret_cast<adb_record_t*>(response)),
      "<n:QueryResponse xmlns:n=\"urn:schemas-pelco-com:service:VideoOutput:1\"><streamCatalog>"
      "<entries><streamParameters>"
      "<displayName></displayName><preAlarmDurationInManualRecord>0</"
      "preAlarmDurationInManualRecord>"
      "<streamSession><outputURI>uuid:691fa4a2:no port at all</outputURI>"
      "<sessionId>ab&lt;c&gt;</sessionId><iFrameOnly>0</iFrameOnly>"
      "<refreshInterval>30</refreshInterval></streamSession></streamParameters>"
      "<streamParameters>"
      "<preAlarmDurationInManualRecord>5</preAlarmDurationInManualRecord>"
      "<streamSession><iFrameOnly>1</iFrameOnly><refreshInterval>9</refreshInterval>"
      "</streamSession></streamParameters></entries></streamCatalog><asyncId>7</asyncId>"
      "</n:QueryResponse>");
  EXPECT_EQ(adb_QueryResponse_get_asyncId(response, env()), 7);
  EXPECT_EQ(adb_QueryResponse_get_property2(response, env()), 7);
  EXPECT_THAT(log(), HasSubstr("clients is passed over"));
  adb_QueryResponse_free(response, env());
}

TEST_F(PelcoRecords, FailuresOfReadingNameTheElement) {
  const std::string session =
      "<streamSession><iFrameOnly>0</iFrameOnly><refreshInterval>9</refreshInterval></"
      "streamSession>";
  const std::string nil = "xmlns:xsi='http://www.w3.org/2001/XMLSchema-instance' xsi:nil='1'";
  const auto alarm = [&](const std::string& element) {
    return "<ConnectResponse><streamParameters>" + element + session +
           "</streamParameters></ConnectResponse>";
  };
  const std::string null = "NULL value is set to a non nillable element ";
  const struct {
    const char* about;
    std::string document, text;
  } cases[] = {
      {"no element", "",
       "Failed in building adb object for ConnectResponse : NULL elemenet can not be passed to "
       "deserialize"},
      {"another element", "<ConnectReply/>",
       "Failed in building adb object for ConnectResponse : Expected ConnectResponse but returned "
       "ConnectReply"},
      {"nothing in it", "<ConnectResponse/>",
       "non nillable or minOuccrs != 0 element streamParameters missing"},
      {"missing further down", alarm(""),
       "non nillable or minOuccrs != 0 element preAlarmDurationInManualRecord missing"},
      {"a number without digits", alarm("<preAlarmDurationInManualRecord/>"),
       null + "preAlarmDurationInManualRecord"},
      {"a number out of range",
       alarm("<preAlarmDurationInManualRecord>4294967296</preAlarmDurationInManualRecord>"),
       null + "preAlarmDurationInManualRecord"},
      {"a record marked nil",
       "<ConnectResponse><streamParameters " + nil + ">x</streamParameters></ConnectResponse>",
       null + "streamParameters"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.about);
    adb_ConnectResponse_t* response = adb_ConnectResponse_create(env());
    axiom_node_t* node = c.document.empty() ? nullptr : parse(c.document);
    EXPECT_EQ(adb_ConnectResponse_deserialize(response, env(), &node, nullptr, AXIS2_FALSE),
              AXIS2_FAILURE);
    EXPECT_EQ(error(), c.text);
    EXPECT_THAT(log(), HasSubstr(c.text));
    adb_ConnectResponse_free(response, env());
  }
}

TEST_F(PelcoRecords, SettersRefuseNullWhereAValueIsRequired) {
  EXPECT_EQ(adb_Disconnect_create_with_values(env(), nullptr, 1), nullptr);
  EXPECT_EQ(error(), "sessionId is being set to NULL, but it is not a nullable element");
  adb_Disconnect_t* record = adb_Disconnect_create_with_values(env(), "17", 1);
  EXPECT_EQ(adb_Disconnect_set_sessionId(record, env(), nullptr), AXIS2_FAILURE);
  EXPECT_EQ(adb_Disconnect_set_sessionId_nil(record, env()), AXIS2_FAILURE);
  // The record's own text given back to it.
  adb_Disconnect_set_sessionId(record, env(), adb_Disconnect_get_sessionId(record, env()));
  EXPECT_STREQ(adb_Disconnect_get_property1(record, env()), "17");
  EXPECT_EQ(adb_Disconnect_reset_sessionId(record, env()), AXIS2_SUCCESS);
  EXPECT_TRUE(adb_Disconnect_is_sessionId_nil(record, env()));
  adb_Disconnect_free(record, env());

  adb_StreamSession_t* session = adb_StreamSession_create(env());
  axutil_uri_t* uri = axutil_uri_parse_string(env(), "rtp://10.0.0.9:5004");
  for (axutil_uri_t* value : {uri, uri, static_cast<axutil_uri_t*>(nullptr)}) {
    EXPECT_EQ(adb_StreamSession_set_transportURL(session, env(), value), AXIS2_SUCCESS);
  }
  EXPECT_TRUE(adb_StreamSession_is_transportURL_nil(session, env()));
  adb_StreamSession_free(session, env());
}

TEST_F(PelcoRecords, ListsOwnTheirItems) {
  adb_Sessions_t* sessions = adb_Sessions_create(env());
  EXPECT_EQ(adb_Sessions_get_session_at(sessions, env(), 0), nullptr);
  for (const char* id : {"a", "b", "c"}) adb_Sessions_add_session(sessions, env(), id);
  EXPECT_EQ(adb_Sessions_add_session(sessions, env(), nullptr), AXIS2_FAILURE);
  EXPECT_EQ(adb_Sessions_set_session_at(sessions, env(), 1, "B"), AXIS2_SUCCESS);
  EXPECT_EQ(adb_Sessions_set_session_nil_at(sessions, env(), 0), AXIS2_SUCCESS);
  for (const int outside : {-1, 3}) {
    EXPECT_EQ(adb_Sessions_set_session_at(sessions, env(), outside, "x"), AXIS2_FAILURE);
    EXPECT_EQ(adb_Sessions_set_session_nil_at(sessions, env(), outside), AXIS2_FAILURE);
    EXPECT_TRUE(adb_Sessions_is_session_nil_at(sessions, env(), outside));
  }
  EXPECT_THAT(text(reinterpret_cast<adb_record_t*>(sessions)),
              HasSubstr("<Sessions><session>B</session><session>c</session>"));
  // Another list takes the place of the first, with what it holds.
  axutil_array_list_t* list = axutil_array_list_create(env(), 0);
  axutil_array_list_add(list, env(), axutil_strdup(env(), "z"));
  EXPECT_EQ(adb_Sessions_set_session(sessions, env(), list), AXIS2_SUCCESS);
  EXPECT_STREQ(adb_Sessions_get_session_at(sessions, env(), 0), "z");
  adb_Sessions_free(sessions, env());
}

TEST_F(PelcoRecords, UriPartsOfDevicesAddresses) {
  const struct {
    const char *text, *protocol, *host, *path;
    int port;
  } cases[] = {
      {"rtp://10.0.0.9:5004", "rtp", "10.0.0.9", nullptr, 5004},
      {"http://user:p@ss@[fe80::1]:80/a/b?c#d", "http", "[fe80::1]", "/a/b", 80},
      {"uuid:691fa4a2-d0", "uuid", nullptr, "691fa4a2-d0", 0},
      {"rtp://host:", "rtp", "host", nullptr, 0},
      {"", nullptr, nullptr, nullptr, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    axutil_uri_t* uri = axutil_uri_parse_string(env(), c.text);
    ASSERT_NE(uri, nullptr);
    EXPECT_STREQ(axutil_uri_get_protocol(uri, env()), c.protocol);
    EXPECT_STREQ(axutil_uri_get_host(uri, env()), c.host);
    EXPECT_STREQ(axutil_uri_get_path(uri, env()), c.path);
    EXPECT_EQ(axutil_uri_get_port(uri, env()), c.port);
    axis2_char_t* text = axutil_uri_to_string(uri, env(), 0);
    EXPECT_STREQ(text, c.text);
    AXIS2_FREE(env()->allocator, text);
    axutil_uri_free(uri, env());
  }
  for (const char* bad : {"rtp://h:65536", "rtp://h:-1", "rtp://h:5x"}) {
    EXPECT_EQ(axutil_uri_parse_string(env(), bad), nullptr) << bad;
  }
}

}  // namespace
