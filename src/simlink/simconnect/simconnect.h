#pragma once
// Our own SimConnect client. It offers the calls of the simulator's SDK that this program uses, under the
// SDK's names and with its meanings (handle, ids, definitions, periods, object types, flags), and delivers
// what the simulator sends through SimConnect_CallDispatch to a dispatch function, as the SDK does. It speaks
// the wire protocol of FSX SP2 (protocol 4), which Prepar3D accepts from legacy clients, over TCP (IPv4 or
// IPv6) or a Windows named pipe, as SimConnect.cfg tells (config.h).
//
// Records and their fields carry the SDK's names (SIMCONNECT_RECV_*); they are packed, little-endian, and
// laid out as on the wire. A record delivered to the dispatch function is at least as long as its type: the
// client checks that, so a dispatch function may read every field of the record type that its dwID names.
// Data blocks (SIMOBJECT_DATA) are as long as dwSize tells; their reader checks their length.
//
// Text goes in and out as UTF-8: the client carries it in the system's ANSI code page, in which the simulator
// reads its own files (a title the simulator knows arrives as it wrote it). Text fields of records are read
// with ByteReader::utf8Text.
//
// The calls may be made from several threads; CallDispatch from one at a time. Calls made inside the dispatch
// function on the dispatching thread are sent together when CallDispatch returns, all others at once.

#include <cstdint>
#include <string_view>

namespace ory {

// The simulator's own names, as its interface spells them.
// NOLINTBEGIN(readability-identifier-naming)

using SimResult = std::int32_t; // HRESULT: 0 for success, negative for failure
inline constexpr SimResult simOk = 0;
inline constexpr SimResult simFail = static_cast<SimResult>(0x80004005u); // E_FAIL

struct SimConnectClient; // one connection to the simulator
using SimConnectHandle = SimConnectClient*;

using SIMCONNECT_OBJECT_ID = std::uint32_t;
using SIMCONNECT_CLIENT_EVENT_ID = std::uint32_t;
using SIMCONNECT_NOTIFICATION_GROUP_ID = std::uint32_t;
using SIMCONNECT_DATA_DEFINITION_ID = std::uint32_t;
using SIMCONNECT_DATA_REQUEST_ID = std::uint32_t;

inline constexpr std::uint32_t SIMCONNECT_UNUSED = 0xFFFFFFFFu;
inline constexpr SIMCONNECT_OBJECT_ID SIMCONNECT_OBJECT_ID_USER = 0;
inline constexpr std::uint32_t SIMCONNECT_UNKNOWN_SENDID = 0;
inline constexpr std::uint32_t SIMCONNECT_UNKNOWN_INDEX = 0xFFFFFFFFu;
inline constexpr std::uint32_t SIMCONNECT_UNKNOWN_GROUP = 0xFFFFFFFFu;

inline constexpr std::uint32_t SIMCONNECT_GROUP_PRIORITY_HIGHEST = 1;
inline constexpr std::uint32_t SIMCONNECT_GROUP_PRIORITY_HIGHEST_MASKABLE = 10000000;
inline constexpr std::uint32_t SIMCONNECT_GROUP_PRIORITY_STANDARD = 1900000000;
inline constexpr std::uint32_t SIMCONNECT_GROUP_PRIORITY_DEFAULT = 2000000000;
inline constexpr std::uint32_t SIMCONNECT_GROUP_PRIORITY_LOWEST = 4000000000u;

inline constexpr std::uint32_t SIMCONNECT_DATA_REQUEST_FLAG_DEFAULT = 0;
inline constexpr std::uint32_t SIMCONNECT_DATA_REQUEST_FLAG_CHANGED = 1;
inline constexpr std::uint32_t SIMCONNECT_DATA_REQUEST_FLAG_TAGGED = 2;
inline constexpr std::uint32_t SIMCONNECT_DATA_SET_FLAG_DEFAULT = 0;
inline constexpr std::uint32_t SIMCONNECT_DATA_SET_FLAG_TAGGED = 1;
inline constexpr std::uint32_t SIMCONNECT_EVENT_FLAG_DEFAULT = 0;
inline constexpr std::uint32_t SIMCONNECT_EVENT_FLAG_FAST_REPEAT_TIMER = 1;
inline constexpr std::uint32_t SIMCONNECT_EVENT_FLAG_SLOW_REPEAT_TIMER = 2;
inline constexpr std::uint32_t SIMCONNECT_EVENT_FLAG_GROUPID_IS_PRIORITY = 0x10;

// Record ids of what the simulator sends; 0 to 26 are common to every simulator, above that they diverge.
enum SIMCONNECT_RECV_ID : std::uint32_t {
  SIMCONNECT_RECV_ID_NULL = 0,
  SIMCONNECT_RECV_ID_EXCEPTION = 1,
  SIMCONNECT_RECV_ID_OPEN = 2,
  SIMCONNECT_RECV_ID_QUIT = 3,
  SIMCONNECT_RECV_ID_EVENT = 4,
  SIMCONNECT_RECV_ID_EVENT_OBJECT_ADDREMOVE = 5,
  SIMCONNECT_RECV_ID_EVENT_FILENAME = 6,
  SIMCONNECT_RECV_ID_EVENT_FRAME = 7,
  SIMCONNECT_RECV_ID_SIMOBJECT_DATA = 8,
  SIMCONNECT_RECV_ID_SIMOBJECT_DATA_BYTYPE = 9,
  SIMCONNECT_RECV_ID_WEATHER_OBSERVATION = 10,
  SIMCONNECT_RECV_ID_CLOUD_STATE = 11,
  SIMCONNECT_RECV_ID_ASSIGNED_OBJECT_ID = 12,
  SIMCONNECT_RECV_ID_RESERVED_KEY = 13,
  SIMCONNECT_RECV_ID_CUSTOM_ACTION = 14,
  SIMCONNECT_RECV_ID_SYSTEM_STATE = 15,
  SIMCONNECT_RECV_ID_CLIENT_DATA = 16,
  SIMCONNECT_RECV_ID_EVENT_WEATHER_MODE = 17,
  SIMCONNECT_RECV_ID_AIRPORT_LIST = 18,
  SIMCONNECT_RECV_ID_VOR_LIST = 19,
  SIMCONNECT_RECV_ID_NDB_LIST = 20,
  SIMCONNECT_RECV_ID_WAYPOINT_LIST = 21,
  SIMCONNECT_RECV_ID_EVENT_MULTIPLAYER_SERVER_STARTED = 22,
  SIMCONNECT_RECV_ID_EVENT_MULTIPLAYER_CLIENT_STARTED = 23,
  SIMCONNECT_RECV_ID_EVENT_MULTIPLAYER_SESSION_ENDED = 24,
  SIMCONNECT_RECV_ID_EVENT_RACE_END = 25,
  SIMCONNECT_RECV_ID_EVENT_RACE_LAP = 26,
};

enum SIMCONNECT_DATATYPE : std::uint32_t {
  SIMCONNECT_DATATYPE_INVALID = 0,
  SIMCONNECT_DATATYPE_INT32 = 1,
  SIMCONNECT_DATATYPE_INT64 = 2,
  SIMCONNECT_DATATYPE_FLOAT32 = 3,
  SIMCONNECT_DATATYPE_FLOAT64 = 4,
  SIMCONNECT_DATATYPE_STRING8 = 5,
  SIMCONNECT_DATATYPE_STRING32 = 6,
  SIMCONNECT_DATATYPE_STRING64 = 7,
  SIMCONNECT_DATATYPE_STRING128 = 8,
  SIMCONNECT_DATATYPE_STRING256 = 9,
  SIMCONNECT_DATATYPE_STRING260 = 10,
  SIMCONNECT_DATATYPE_STRINGV = 11,
  SIMCONNECT_DATATYPE_INITPOSITION = 12,
  SIMCONNECT_DATATYPE_MARKERSTATE = 13,
  SIMCONNECT_DATATYPE_WAYPOINT = 14,
  SIMCONNECT_DATATYPE_LATLONALT = 15,
  SIMCONNECT_DATATYPE_XYZ = 16,
};

enum SIMCONNECT_EXCEPTION : std::uint32_t {
  SIMCONNECT_EXCEPTION_NONE = 0,
  SIMCONNECT_EXCEPTION_ERROR = 1,
  SIMCONNECT_EXCEPTION_SIZE_MISMATCH = 2,
  SIMCONNECT_EXCEPTION_UNRECOGNIZED_ID = 3,
  SIMCONNECT_EXCEPTION_UNOPENED = 4,
  SIMCONNECT_EXCEPTION_VERSION_MISMATCH = 5,
  SIMCONNECT_EXCEPTION_TOO_MANY_GROUPS = 6,
  SIMCONNECT_EXCEPTION_NAME_UNRECOGNIZED = 7,
  SIMCONNECT_EXCEPTION_TOO_MANY_EVENT_NAMES = 8,
  SIMCONNECT_EXCEPTION_EVENT_ID_DUPLICATE = 9,
  SIMCONNECT_EXCEPTION_TOO_MANY_MAPS = 10,
  SIMCONNECT_EXCEPTION_TOO_MANY_OBJECTS = 11,
  SIMCONNECT_EXCEPTION_TOO_MANY_REQUESTS = 12,
  SIMCONNECT_EXCEPTION_INVALID_DATA_TYPE = 18,
  SIMCONNECT_EXCEPTION_INVALID_DATA_SIZE = 19,
  SIMCONNECT_EXCEPTION_DATA_ERROR = 20,
  SIMCONNECT_EXCEPTION_INVALID_ARRAY = 21,
  SIMCONNECT_EXCEPTION_CREATE_OBJECT_FAILED = 22,
  SIMCONNECT_EXCEPTION_LOAD_FLIGHTPLAN_FAILED = 23,
  SIMCONNECT_EXCEPTION_OPERATION_INVALID_FOR_OBJECT_TYPE = 24,
  SIMCONNECT_EXCEPTION_ILLEGAL_OPERATION = 25,
  SIMCONNECT_EXCEPTION_ALREADY_SUBSCRIBED = 26,
  SIMCONNECT_EXCEPTION_INVALID_ENUM = 27,
  SIMCONNECT_EXCEPTION_DEFINITION_ERROR = 28,
  SIMCONNECT_EXCEPTION_DUPLICATE_ID = 29,
  SIMCONNECT_EXCEPTION_DATUM_ID = 30,
  SIMCONNECT_EXCEPTION_OUT_OF_BOUNDS = 31,
};

enum SIMCONNECT_PERIOD : std::uint32_t {
  SIMCONNECT_PERIOD_NEVER = 0,
  SIMCONNECT_PERIOD_ONCE = 1,
  SIMCONNECT_PERIOD_VISUAL_FRAME = 2,
  SIMCONNECT_PERIOD_SIM_FRAME = 3,
  SIMCONNECT_PERIOD_SECOND = 4,
};

enum SIMCONNECT_SIMOBJECT_TYPE : std::uint32_t {
  SIMCONNECT_SIMOBJECT_TYPE_USER = 0,
  SIMCONNECT_SIMOBJECT_TYPE_ALL = 1,
  SIMCONNECT_SIMOBJECT_TYPE_AIRCRAFT = 2,
  SIMCONNECT_SIMOBJECT_TYPE_HELICOPTER = 3,
  SIMCONNECT_SIMOBJECT_TYPE_BOAT = 4,
  SIMCONNECT_SIMOBJECT_TYPE_GROUND = 5,
};

#pragma pack(push, 1)

struct SIMCONNECT_RECV {
  std::uint32_t dwSize;    // bytes of the whole record
  std::uint32_t dwVersion; // the protocol of the connection
  std::uint32_t dwID;      // SIMCONNECT_RECV_ID
};

struct SIMCONNECT_RECV_EXCEPTION : SIMCONNECT_RECV {
  std::uint32_t dwException; // SIMCONNECT_EXCEPTION
  std::uint32_t dwSendID;    // the packet that failed (SimConnect_GetLastSentPacketID), 0 if unknown
  std::uint32_t dwIndex;     // 1-based index of the faulty argument, SIMCONNECT_UNKNOWN_INDEX if unknown
};

struct SIMCONNECT_RECV_OPEN : SIMCONNECT_RECV {
  char szApplicationName[256]; // NUL-terminated, Latin-1
  std::uint32_t dwApplicationVersionMajor;
  std::uint32_t dwApplicationVersionMinor;
  std::uint32_t dwApplicationBuildMajor;
  std::uint32_t dwApplicationBuildMinor;
  std::uint32_t dwSimConnectVersionMajor;
  std::uint32_t dwSimConnectVersionMinor;
  std::uint32_t dwSimConnectBuildMajor;
  std::uint32_t dwSimConnectBuildMinor;
  std::uint32_t dwReserved1;
  std::uint32_t dwReserved2;
};

struct SIMCONNECT_RECV_QUIT : SIMCONNECT_RECV {};

struct SIMCONNECT_RECV_EVENT : SIMCONNECT_RECV {
  std::uint32_t uGroupID; // SIMCONNECT_UNKNOWN_GROUP for system events
  std::uint32_t uEventID; // the client's event id
  std::uint32_t dwData;
};

struct SIMCONNECT_RECV_EVENT_OBJECT_ADDREMOVE : SIMCONNECT_RECV_EVENT {
  SIMCONNECT_SIMOBJECT_TYPE eObjType; // dwData is the object id
};

struct SIMCONNECT_RECV_EVENT_FILENAME : SIMCONNECT_RECV_EVENT {
  char szFileName[260]; // NUL-terminated
  std::uint32_t dwFlags;
};

struct SIMCONNECT_RECV_EVENT_FRAME : SIMCONNECT_RECV_EVENT {
  float fFrameRate; // frames per second
  float fSimSpeed;  // simulation rate, 1 for real time
};

// Followed by the data block, dwSize - 40 bytes: the definition's datums in the order they were added.
struct SIMCONNECT_RECV_SIMOBJECT_DATA : SIMCONNECT_RECV {
  std::uint32_t dwRequestID;
  std::uint32_t dwObjectID;
  std::uint32_t dwDefineID;
  std::uint32_t dwFlags;
  std::uint32_t dwentrynumber; // 1-based, for replies by type
  std::uint32_t dwoutof;       // number of objects of a reply by type
  std::uint32_t dwDefineCount; // number of datums in the block
};

struct SIMCONNECT_RECV_SIMOBJECT_DATA_BYTYPE : SIMCONNECT_RECV_SIMOBJECT_DATA {};

struct SIMCONNECT_RECV_ASSIGNED_OBJECT_ID : SIMCONNECT_RECV {
  std::uint32_t dwRequestID;
  std::uint32_t dwObjectID;
};

struct SIMCONNECT_DATA_INITPOSITION {
  double Latitude;        // degrees
  double Longitude;       // degrees
  double Altitude;        // feet
  double Pitch;           // degrees, negative nose up
  double Bank;            // degrees
  double Heading;         // degrees true
  std::uint32_t OnGround; // 1 puts the object on the ground
  std::uint32_t Airspeed; // knots
};

#pragma pack(pop)

static_assert(sizeof(SIMCONNECT_RECV) == 12 && sizeof(SIMCONNECT_RECV_EXCEPTION) == 24);
static_assert(sizeof(SIMCONNECT_RECV_OPEN) == 308 && sizeof(SIMCONNECT_RECV_EVENT) == 24);
static_assert(sizeof(SIMCONNECT_RECV_EVENT_OBJECT_ADDREMOVE) == 28 &&
              sizeof(SIMCONNECT_RECV_EVENT_FILENAME) == 288);
static_assert(sizeof(SIMCONNECT_RECV_EVENT_FRAME) == 32 && sizeof(SIMCONNECT_RECV_SIMOBJECT_DATA) == 40);
static_assert(sizeof(SIMCONNECT_RECV_ASSIGNED_OBJECT_ID) == 20 && sizeof(SIMCONNECT_DATA_INITPOSITION) == 56);

// The data block of a SIMOBJECT_DATA record and its length in bytes.
inline const unsigned char* simObjectData(const SIMCONNECT_RECV_SIMOBJECT_DATA* RECORD) {
  return reinterpret_cast<const unsigned char*>(RECORD) + sizeof(SIMCONNECT_RECV_SIMOBJECT_DATA);
}
inline std::uint32_t simObjectDataSize(const SIMCONNECT_RECV_SIMOBJECT_DATA* RECORD) {
  return RECORD->dwSize - static_cast<std::uint32_t>(sizeof(SIMCONNECT_RECV_SIMOBJECT_DATA));
}

using DispatchProc = void (*)(const SIMCONNECT_RECV* data, std::uint32_t size, void* context);

// Connects as NAME by the section CONFIG_INDEX of SimConnect.cfg. The window and event handles of the SDK are
// accepted and ignored: records are only delivered through SimConnect_CallDispatch.
SimResult SimConnect_Open(SimConnectHandle* sim, std::string_view name, void* window, std::uint32_t userEvent,
                          void* eventHandle, std::uint32_t configIndex);
SimResult SimConnect_Close(SimConnectHandle sim);
// Hands every complete record received so far to PROC. A lost connection is delivered once as a QUIT record;
// after that the call fails.
SimResult SimConnect_CallDispatch(SimConnectHandle sim, DispatchProc proc, void* context);
SimResult SimConnect_GetLastSentPacketID(SimConnectHandle sim, std::uint32_t* sendId);

SimResult SimConnect_MapClientEventToSimEvent(SimConnectHandle sim, SIMCONNECT_CLIENT_EVENT_ID eventId,
                                              std::string_view eventName = {});
SimResult SimConnect_TransmitClientEvent(SimConnectHandle sim, SIMCONNECT_OBJECT_ID objectId,
                                         SIMCONNECT_CLIENT_EVENT_ID eventId, std::uint32_t data,
                                         SIMCONNECT_NOTIFICATION_GROUP_ID groupId, std::uint32_t flags);
SimResult SimConnect_AddClientEventToNotificationGroup(SimConnectHandle sim,
                                                       SIMCONNECT_NOTIFICATION_GROUP_ID groupId,
                                                       SIMCONNECT_CLIENT_EVENT_ID eventId,
                                                       bool maskable = false);
SimResult SimConnect_SetNotificationGroupPriority(SimConnectHandle sim,
                                                  SIMCONNECT_NOTIFICATION_GROUP_ID groupId,
                                                  std::uint32_t priority);
SimResult SimConnect_SubscribeToSystemEvent(SimConnectHandle sim, SIMCONNECT_CLIENT_EVENT_ID eventId,
                                            std::string_view systemEventName);
SimResult SimConnect_UnsubscribeFromSystemEvent(SimConnectHandle sim, SIMCONNECT_CLIENT_EVENT_ID eventId);

SimResult SimConnect_AddToDataDefinition(SimConnectHandle sim, SIMCONNECT_DATA_DEFINITION_ID defineId,
                                         std::string_view datumName, std::string_view unitsName,
                                         SIMCONNECT_DATATYPE datumType = SIMCONNECT_DATATYPE_FLOAT64,
                                         float epsilon = 0, std::uint32_t datumId = SIMCONNECT_UNUSED);
SimResult SimConnect_ClearDataDefinition(SimConnectHandle sim, SIMCONNECT_DATA_DEFINITION_ID defineId);
SimResult SimConnect_RequestDataOnSimObject(SimConnectHandle sim, SIMCONNECT_DATA_REQUEST_ID requestId,
                                            SIMCONNECT_DATA_DEFINITION_ID defineId,
                                            SIMCONNECT_OBJECT_ID objectId, SIMCONNECT_PERIOD period,
                                            std::uint32_t flags = 0, std::uint32_t origin = 0,
                                            std::uint32_t interval = 0, std::uint32_t limit = 0);
// RADIUS_METERS 0 means the user's object alone, as in the SDK.
SimResult SimConnect_RequestDataOnSimObjectType(SimConnectHandle sim, SIMCONNECT_DATA_REQUEST_ID requestId,
                                                SIMCONNECT_DATA_DEFINITION_ID defineId,
                                                std::uint32_t radiusMeters, SIMCONNECT_SIMOBJECT_TYPE type);
// ARRAY_COUNT elements of UNIT_SIZE bytes each (a count of 0 counts as 1) from DATA.
SimResult SimConnect_SetDataOnSimObject(SimConnectHandle sim, SIMCONNECT_DATA_DEFINITION_ID defineId,
                                        SIMCONNECT_OBJECT_ID objectId, std::uint32_t flags,
                                        std::uint32_t arrayCount, std::uint32_t unitSize, const void* data);

SimResult SimConnect_AICreateNonATCAircraft(SimConnectHandle sim, std::string_view containerTitle,
                                            std::string_view tailNumber,
                                            const SIMCONNECT_DATA_INITPOSITION& initPosition,
                                            SIMCONNECT_DATA_REQUEST_ID requestId);
SimResult SimConnect_AIReleaseControl(SimConnectHandle sim, SIMCONNECT_OBJECT_ID objectId,
                                      SIMCONNECT_DATA_REQUEST_ID requestId);
SimResult SimConnect_AIRemoveObject(SimConnectHandle sim, SIMCONNECT_OBJECT_ID objectId,
                                    SIMCONNECT_DATA_REQUEST_ID requestId);
// FLIGHT_PLAN_PATH without the ".pln" extension.
SimResult SimConnect_AISetAircraftFlightPlan(SimConnectHandle sim, SIMCONNECT_OBJECT_ID objectId,
                                             std::string_view flightPlanPath,
                                             SIMCONNECT_DATA_REQUEST_ID requestId);

// NOLINTEND(readability-identifier-naming)

} // namespace ory
