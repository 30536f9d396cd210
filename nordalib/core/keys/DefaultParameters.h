#pragma once
// A camera's parameter store after a factory reset.

#include "nordalib/core/dataproxy/DataProxy.h"
#include "nordalib/core/datatypes/DataStorage.h"

#include <functional>
#include <string>

namespace norda::exp {

// Writes (without notification) a complete, sensible value of the expected type for every key
// the library's elements read: a 640 x 480 sensor, a low range -20..120 °C (range 1) and a high
// range 0..350 °C (range 2), emissivity 0.95, reflected 20 °C, air 20 °C at 50 %, automatic
// scaling with the iron palette, all measurement points defined, JPEG saving on. Existing values
// are overwritten.
void setDefaultParameters(DataProxy<std::string>& proxy);

// Adds the defaults of a part of the library beyond the framework (written, without notification,
// after the framework's own by every later setDefaultParameters). The vision libraries add theirs
// (the bad-pixel list, the palette) when the library is loaded; hosts need not call this.
void addDefaultParameters(std::function<void(DataProxy<std::string>&)> provider);

// The settings of one measurement range as stored in Id::MeasRangePool (item names of the
// ActiveMeasRange group). `number` is the range number.
DataStorage<std::string> makeMeasRange(unsigned char number, float toleranceBottom, float toleranceTop,
                                       float displayBottom, float displayTop);

// Copies the pool entry of range `number` into the ActiveMeasRange keys (with notification); the
// name key is written (and announced) only when it changes. Throws when the pool has no such range.
void activateMeasRange(DataProxy<std::string>& proxy, unsigned char number);

} // namespace norda::exp
