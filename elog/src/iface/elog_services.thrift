// The event log's services. The generated classes are building blocks: what
// peers expect on the wire differs from the present generator's habits, and
// ELog.h and ELogNotification.h make up the difference in NV_TDX.
include "fw.thrift"
include "elog.thrift"
namespace cpp NV_TDX.generated

service ELog {
  fw.ActionResponse submitAction(1: fw.Action action) throws (1: fw.FwException ex)
  oneway void submitActionA(1: fw.Action action)
}

service ELogNotification {
  oneway void eventNotification(1: elog.Event event_)
}
