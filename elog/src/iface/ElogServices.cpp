#include "ElogServices.h"

#include <thrift/TApplicationException.h>
#include <thrift/transport/TTransport.h>

namespace NV_TDX {
namespace {

using apache::thrift::TApplicationException;
using apache::thrift::protocol::TMessageType;
using apache::thrift::protocol::TProtocol;

template <class Record>
void sendMessage(TProtocol& out, const std::string& name, TMessageType type, std::int32_t seqid,
                 const Record& record) {
  out.writeMessageBegin(name, type, seqid);
  record.write(&out);
  out.writeMessageEnd();
  out.getTransport()->flush();
  out.getTransport()->writeEnd();
}

// The sequence id of every call is 0, and no reply's is looked at.
template <class Arguments>
void sendCall(TProtocol& out, const std::string& name, const Arguments& arguments) {
  sendMessage(out, name, apache::thrift::protocol::T_CALL, 0, arguments);
}

void endRead(TProtocol& in) {
  in.readMessageEnd();
  in.getTransport()->readEnd();
}

void skipBody(TProtocol& in) {
  in.skip(apache::thrift::protocol::T_STRUCT);
  endRead(in);
}

// Leaves the reply's body to be read, or throws. The type goes before the
// name: an exception counts whatever method it names.
void beginReply(TProtocol& in, const char* method) {
  std::string name;
  TMessageType type;
  std::int32_t seqid = 0;
  in.readMessageBegin(name, type, seqid);
  if (type == apache::thrift::protocol::T_EXCEPTION) {
    TApplicationException failure;
    failure.read(&in);
    endRead(in);
    throw failure;
  }
  if (type != apache::thrift::protocol::T_REPLY) {
    skipBody(in);
    throw TApplicationException(TApplicationException::INVALID_MESSAGE_TYPE);
  }
  if (name != method) {
    skipBody(in);
    throw TApplicationException(TApplicationException::WRONG_METHOD_NAME);
  }
}

}  // namespace

void ELogClient::submitAction(ActionResponse& result, const Action& action) {
  send_submitAction(action);
  recv_submitAction(result);
}

void ELogClient::send_submitAction(const Action& action) {
  ELog_submitAction_pargs arguments;
  arguments.action = &action;
  sendCall(*oprot_, "submitAction", arguments);
}

void ELogClient::recv_submitAction(ActionResponse& result) {
  beginReply(*iprot_, "submitAction");
  ELog_submitAction_presult reply;
  reply.success = &result;
  reply.read(iprot_);
  endRead(*iprot_);
  if (reply.__isset.success) return;
  if (reply.__isset.ex) throw reply.ex;
  throw TApplicationException(TApplicationException::MISSING_RESULT,
                              "submitAction failed: unknown result");
}

void ELogClient::submitActionA(const Action& action) {
  send_submitActionA(action);
}

void ELogClient::send_submitActionA(const Action& action) {
  ELog_submitActionA_pargs arguments;
  arguments.action = &action;
  sendCall(*oprot_, "submitActionA", arguments);
}

void ELogNotificationClient::eventNotification(const Event& event_) {
  send_eventNotification(event_);
}

void ELogNotificationClient::send_eventNotification(const Event& event_) {
  ELogNotification_eventNotification_pargs arguments;
  arguments.event_ = &event_;
  sendCall(*oprot_, "eventNotification", arguments);
}

template <class Generated>
bool CallProcessor<Generated>::process(std::shared_ptr<TProtocol> in,
                                       std::shared_ptr<TProtocol> out, void* context) {
  std::string name;
  TMessageType type;
  std::int32_t seqid = 0;
  in->readMessageBegin(name, type, seqid);
  if (type == apache::thrift::protocol::T_CALL)
    return this->dispatchCall(in.get(), out.get(), name, seqid, context);
  skipBody(*in);
  sendMessage(*out, name, apache::thrift::protocol::T_EXCEPTION, seqid,
              TApplicationException(TApplicationException::INVALID_MESSAGE_TYPE));
  return true;
}

template class CallProcessor<generated::ELogProcessor>;
template class CallProcessor<generated::ELogNotificationProcessor>;

}  // namespace NV_TDX
