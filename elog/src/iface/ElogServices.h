#pragma once

#include <memory>

#include "ELog.h"
#include "ELogNotification.h"

// The event log's services as their peers know them. Three habits of the
// present generator would not be understood by them, and are put right here:
// one-way methods travel as T_CALL, a client throws on a reply of a wrong type
// or name, and a processor answers a message that is no call.
namespace NV_TDX {

using generated::ELog_submitAction_args;
using generated::ELog_submitAction_pargs;
using generated::ELog_submitAction_presult;
using generated::ELog_submitAction_result;
using generated::ELog_submitActionA_args;
using generated::ELog_submitActionA_pargs;
using generated::ELogIf;
using generated::ELogMultiface;
using generated::ELogNotification_eventNotification_args;
using generated::ELogNotification_eventNotification_pargs;
using generated::ELogNotificationIf;
using generated::ELogNotificationMultiface;
using generated::ELogNotificationNull;
using generated::ELogNull;

// Takes actions into the event log. One thread at a time. Failures to send are
// the transport's exceptions; submitAction also throws FwException from the
// service, TTransportException TIMED_OUT, and TApplicationException.
class ELogClient : public generated::ELogClient {
 public:
  using generated::ELogClient::ELogClient;

  void submitAction(ActionResponse& result, const Action& action) override;
  void send_submitAction(const Action& action);
  void recv_submitAction(ActionResponse& result);
  // Sends only: what becomes of the action is never known here.
  void submitActionA(const Action& action) override;
  void send_submitActionA(const Action& action);
};

// Tells a subscriber of an event, without an answer.
class ELogNotificationClient : public generated::ELogNotificationClient {
 public:
  using generated::ELogNotificationClient::ELogNotificationClient;

  void eventNotification(const Event& event_) override;
  void send_eventNotification(const Event& event_);
};

// Runs a request on a handler and answers it. Only T_CALL is a request, also
// for one-way methods; anything else is answered with INVALID_MESSAGE_TYPE.
// Shared by all workers: the handler has to bear concurrent calls.
template <class Generated>
class CallProcessor : public Generated {
 public:
  using apache::thrift::TProcessor::process;
  using Generated::Generated;
  bool process(std::shared_ptr<apache::thrift::protocol::TProtocol> in,
               std::shared_ptr<apache::thrift::protocol::TProtocol> out, void* context) override;
};

using ELogProcessor = CallProcessor<generated::ELogProcessor>;
using ELogNotificationProcessor = CallProcessor<generated::ELogNotificationProcessor>;

}  // namespace NV_TDX
