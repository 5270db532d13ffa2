#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "trace/reader/Message.h"

namespace trace {

/// What the trace knows of a name.
struct ObjectFacts {
    std::string name;         ///< "positionPan", "relayStatesTable state 5", "sysUpTime"; empty: unknown
    std::string object;       ///< the same without a row: "relayStatesTable state"
    std::uint8_t type = 0;    ///< ValueType; 0: unknown
    bool isWritable = false;  ///< the camera's object can be written, as far as the view allows it
    bool isCamera = false;    ///< one of the camera's objects
    bool isInstance = false;  ///< exactly an object's name; otherwise it is below or above one, or unknown
    bool isText = false;      ///< its octets are a text
};

/// Knows the camera's objects, the cells of its tables, and some of the agent's. A name below or above a camera's
/// object has that object's facts with isInstance false; the name then has the rest of its numbers: "positionPan.0".
ObjectFacts FactsOf(const ObjectId& name);

/// An object of the camera, or a column of one of its tables.
struct CameraObject {
    std::string name;       ///< "positionPan", "relayStatesTable state"
    ObjectId id;            ///< with its instance; of a column without: a row's number follows
    std::uint8_t type = 0;  ///< ValueType
    bool isWritable = false;
    bool isColumn = false;
};

/// All of them, in the order of the camera's table of objects; the columns at the end.
std::vector<CameraObject> AllCameraObjects();

/// The name, or the dotted numbers of one that is not known.
std::string NameOf(const ObjectId& name);

/// "OCTET STRING", "INTEGER", "noSuchObject", or "type 30" for others.
std::string TypeName(std::uint8_t type);

/// "genErr", "noError"; a number that is none: as a number.
std::string ErrorName(std::int64_t status);

/// "GET", "SET", "GETBULK"; a tag that is none: as a number.
std::string PduName(std::uint8_t type);

}  // namespace trace
