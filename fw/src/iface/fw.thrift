// Records that all services of the system share. Only field ids, types and
// enum values reach the wire. Every field is plain: always written, and taken
// from a reader when it is there.
namespace cpp NV_TDX

typedef i32 TObjId
typedef map<string, string> TParameters

// `what` would collide with the exception's own what(), which the generator
// adds; a member name does not reach the wire.
exception FwException {
  1: string what_
  2: string errorId
}

struct ObjectInfo {
  1: TObjId objid
  2: string name
  3: string type
  4: string subtype
  5: string TimeDST
  6: double TimeZone
}

struct ParameterDesc {
  1: string name
  2: bool isRequired
  3: string type
  4: string lookupTable
}

struct ActionDesc {
  1: string name
  2: string displayname
  3: list<ParameterDesc> parameters
}

struct NestedAction {
  1: string name
  2: string domain
  3: TParameters parameters
}

struct Action {
  1: string name
  2: TParameters parameters
  3: list<NestedAction> actions
}

struct ActionResponse {
  1: TParameters parameters
}
