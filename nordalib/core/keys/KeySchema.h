#pragma once
// The parameter keys in one table: for every key its name, value type, factory default, accepted
// range, who writes it and the group it belongs to.
//
// setDefaultParameters writes the defaults from it; hosts tell user settings from results and
// check ranges with it; frame sources stamp the keys it marks into raw frames; viewers get it as
// data. A new key is one line of the table in KeySchema.cpp (plus its Id:: constant in Keys.h when
// code names it). The user's measurement marks (points, areas) have their own table below, so
// that no one spells them out again.

#include "nordalib/core/datatypes/Variant.h"

#include <memory>
#include <optional>
#include <string>
#include <typeindex>
#include <vector>

namespace norda::exp {

enum class KeyGroup {
    Device,           // the camera's own state: shutter, sensor, temperatures, lens, uptime
    MeasurementRange, // the active range and its pool
    Filters,          // the noise filters' tuning
    ObjectParameters, // what the temperature of an object depends on besides its radiation
    Measurement,      // the camera's own marks (hot, cold, centre, laser) and what they measure
    UserMarks,        // the user's points and areas, delta-T
    Display,          // scaling, palette, alarm, isotherm, fusion
    Storage,          // saving images
    Visual,           // the visual camera, registration, laser, emission marker
    Gallery,          // the saved image shown instead of the live one
};

enum class KeyWriter {
    User,    // a setting: written from outside (settings file, command line, HTTP), kept across restarts
    Service, // written from outside but not kept: a request, or a value the device reports (lens)
    Host,    // the host program itself; read-only from outside
    Device,  // the camera (sensor, temperatures, visual camera); read-only from outside
    Library, // an element's result; read-only from outside
};

// Accepted values of a number or temperature (°C): [low, high], or (low, high] when lowOpen.
struct KeyRange {
    double low;
    double high;
    bool lowOpen;
    const char* what; // names the value in the error: "an emissivity"
};

struct KeySpec {
    const std::string& name;
    std::type_index type;
    KeyGroup group;
    KeyWriter writer;
    std::shared_ptr<const Variant> defaultValue; // null: the key lives in frame metadata only
    std::optional<KeyRange> range;
    bool rawFrame; // every raw frame carries it: the frame source stamps it from the store

    std::string typeName() const;
    bool writable() const { return writer == KeyWriter::User || writer == KeyWriter::Service; }
    bool saved() const { return writer == KeyWriter::User; }
};

// Every key, in the order of the table (never destroyed: readable while the process exits).
const std::vector<KeySpec>& keySchema();
// The key's line; nullptr for a key the schema does not know (provided by a vision library).
const KeySpec* findKey(const std::string& name);
// Why `value` is outside the key's range; empty when it is inside or the key has no range.
std::string rangeProblem(const KeySpec& keySpec, const Variant& value);
// "<what> must lie in <range>" of a key with a range (relations in %), empty without one.
std::string rangeText(const KeySpec& keySpec);

const char* groupName(KeyGroup group);
const char* writerName(KeyWriter writer);

// A measurement mark the user places: five points, three areas. Empty keys: the mark has no such
// item (areas have no position, points no rectangle).
struct UserMark {
    std::string name;  // "MeasPoint1", "UserArea2": the name delta-T compares
    std::string label; // "P1", "A2": what the overlay writes
    bool area;
    const std::string& visible;
    const std::string& position; // cv::Point_<int> (points)
    const std::string& rect;     // cv::Rect_<int> (areas)
    const std::string& result;   // MeasPoint or MeasArea
    const std::string& localParameters;
    const std::string& emissivity;
    const std::string& reflectedTemperature;
    const std::string& distance;
    const std::string& material; // std::string: the material whose emissivity the mark has, or empty
};
const std::vector<UserMark>& userMarks();

// The results delta-T can compare, in the order a user picks them.
const std::vector<std::string>& deltaTResultNames();

} // namespace norda::exp
