#pragma once
// What the host checks in a new setting beyond its type and the key schema's range: that a
// scaling or fusion mode, palette or measurement range exists, that marks lie inside the image
// and that delta-T compares results that exist. Each check names what is wrong.

#include "apps/nordacam/Settings.h"

#include "nordalib/core/dataproxy/DataProxy.h"

namespace nordacam {

void addHostChecks(Settings& settings, const norda::exp::DataProxy<std::string>& store);

} // namespace nordacam
