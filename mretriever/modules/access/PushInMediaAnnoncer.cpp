#include "PushInMediaAnnoncer.h"

#include <cms/Session.h>
#include <thrift/transport/TTransportException.h>

#include <boost/format.hpp>
#include <cstdio>
#include <memory>
#include <string>

#include "AccessLog.h"
#include "Cfg.h"
#include "ElogServices.h"
#include "FailureReport.h"
#include "Retriever.h"
#include "TDX_Service.h"

namespace Kelvane {
namespace {

constexpr char kTopic[] = "amq.gis.topic";
constexpr char kEventLog[] = "tdx.eventlog";
constexpr int kMasterPort = 10000;
constexpr char kWokeUp[] = "iStream device woke up";

// Made once, each use copies it. Left to the process's end on purpose: exit()
// would destroy it under a thread that still reports.
const boost::format& geo_stat = *new boost::format(
    "<message type=\"gisTrgtMobile\" objid=\"%s\" lat=\"%f\" lon=\"%f\" alt=\"%f\" pts=\"%lld\" "
    "/>");

std::string masterNode() {
  return Cfg::exist("MASTER_NODE") ? Cfg::value("MASTER_NODE") : "localhost";
}

// The event log answers each action (nobody looks at the answer), so that an
// unreachable one costs the caller 5 seconds a report.
class Announcer : public PushInMediaAnnoncer {
 public:
  Announcer() {
    // The channel outlives the service that made it.
    TDX_Service service(masterNode(), kMasterPort, "dummy", "dummy", TDX_Service::Transport_MBUS);
    elogClient_ = std::make_shared<NV_TDX::ELogClient>(service.proto_(kEventLog));
    elogAction_.name = "create";
    elogAction_.parameters["objid"] = Cfg::value("OBJID");
    elogAction_.parameters["source"] = "4";
  }

  void annonceGPS(const timeval& time, float latitude, float longitude, float altitude) override;
  void annonceAlive(const timeval& time, char* message) override;

 private:
  void makeSender(cms::Session& session);
  void sendPosition(cms::Session& session, const timeval& time);

  std::shared_ptr<NV_TDX::ELogClient> elogClient_;
  std::shared_ptr<cms::Destination> cmsDestination_;
  std::shared_ptr<cms::MessageProducer> cmsProducer_;
  NV_TDX::Action elogAction_;
  time_t aliveLastReportSentTime_ = 0;
  time_t gpsLastReportSentTime_ = 0;
  float gpsLatitude_ = 0, gpsLongitude_ = 0, gpsAltitude_ = 0;
};

void Announcer::makeSender(cms::Session& session) {
  try {
    cmsDestination_.reset(session.createTopic(kTopic));
    cmsProducer_.reset(session.createProducer(cmsDestination_.get()));
    cmsProducer_->setDeliveryMode(cms::DeliveryMode::NON_PERSISTENT);
  } catch (const cms::CMSException& failure) {
    FATAL_EXIT("CMS error: %s", failure.getMessage().c_str());
  }
}

void Announcer::sendPosition(cms::Session& session, const timeval& time) {
  const long long pts = static_cast<long long>(time.tv_sec) * 1000000 + time.tv_usec;
  const std::string text = (boost::format(geo_stat) % Cfg::value("OBJID") % gpsLatitude_ %
                            gpsLongitude_ % gpsAltitude_ % pts)
                               .str();
  try {
    const std::unique_ptr<cms::TextMessage> message(session.createTextMessage());
    message->setText(text);
    cmsProducer_->send(message.get());
  } catch (const cms::CMSException& failure) {
    LOG_ERROR("CMS error: %s", failure.getMessage().c_str());
  }
}

void Announcer::annonceGPS(const timeval& time, float latitude, float longitude, float altitude) {
  if (latitude == 0 && longitude == 0 && altitude == 0) return;
  cms::Session* session = Retriever::instance(nullptr, nullptr, nullptr, nullptr)->getCMSSession();
  if (session == nullptr) {
    LOG_ERROR("No AMQ connections found");
    return;
  }
  if (!cmsDestination_) makeSender(*session);
  if (latitude != 0) gpsLatitude_ = latitude;
  if (longitude != 0) gpsLongitude_ = longitude;
  if (altitude != 0) gpsAltitude_ = altitude;
  if (gpsLastReportSentTime_ >= time.tv_sec) return;
  sendPosition(*session, time);
  LOG_DEBUG("GPS updated (or expired): lat: %f, long: %f, alt: %f", gpsLatitude_, gpsLongitude_,
            gpsAltitude_);
  gpsLastReportSentTime_ = time.tv_sec;
}

void Announcer::annonceAlive(const timeval& time, char* message) {
  if (aliveLastReportSentTime_ >= time.tv_sec) return;
  const std::string seconds = std::to_string(static_cast<int>(time.tv_sec));
  elogAction_.parameters["when"] = seconds;
  elogAction_.parameters["from"] = seconds;
  elogAction_.parameters["msg"] = *message == '\0' ? kWokeUp : message;
  try {
    NV_TDX::ActionResponse unseen;
    elogClient_->submitAction(unseen, elogAction_);
  } catch (const NV_TDX::FwException& refusal) {
    LOG_ERROR("Could not submit action: %s", refusal.what_.c_str());
  } catch (const apache::thrift::transport::TTransportException& failure) {
    LOG_ERROR("Elog Transport error: %s", failure.what());
  } catch (const std::exception& failure) {
    LOG_ERROR("Could not submit action: %s", failure.what());
  }
  aliveLastReportSentTime_ = time.tv_sec;
}

}  // namespace
}  // namespace Kelvane

Kelvane::PushInMediaAnnoncer* mretriever_createPushInMediaAnnoncer() {
  return new Kelvane::Announcer;
}
