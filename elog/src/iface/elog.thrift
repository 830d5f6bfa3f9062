// Records of the event log. Misspelt enumerators are names of the interface.
include "fw.thrift"
namespace cpp NV_TDX

typedef i32 TEventId
typedef i16 TSourceId
typedef i32 TSeconds
typedef map<string, string> TProperties

enum Eventtype {
  INFO = 0
  ALERT = 1
}

enum Priority {
  LOW = 1
  MEDUIUM = 2
  ELEVATED = 3
  HIGH = 4
  URGENT = 5
}

enum Lifespan {
  TRANSIENT = 0
  SHORT = 1
  MODERATE = 2
  INTERMEDIATE = 3
  LONG = 4
  EXTENDED = 5
  AUTOMATIC = 6
}

enum Tag {
  NEEDS_ANNCMNT_CONF = 1
  NEEDS_SUPERVISER_ATTN = 2
  NEEDS_ACK = 3
  ACK = 4
  UPDATABLE = 5
  EADA_ENABLED = 6
  CLEARABLE = 7
  CLEARED = 8
  FINAL = 9
}

// The generator reserves `when` and `from`; the build gives the members these
// names back.
struct EventTS {
  1: TSeconds when_
  2: TSeconds from_
  3: TSeconds to
  4: TSeconds updated
}

// Id 11 was used once and must not be given to a new field.
struct Event {
  1: TEventId id
  2: fw.TObjId objId
  3: TSourceId sourceId
  4: Eventtype eventtype
  5: Priority priority
  6: Lifespan lifespan
  7: string msg
  8: string note
  9: EventTS utc
  10: fw.ObjectInfo obj
  12: i16 state
  13: set<Tag> tags
  14: TProperties properties
  15: list<fw.ObjectInfo> witnesses
  16: list<fw.ActionDesc> actions
  17: bool is1stNotification
}
