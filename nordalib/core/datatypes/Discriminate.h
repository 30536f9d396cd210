#pragma once
// Splitting of hierarchical keys: "MeasPoints.HotSpot.Position" -> group "MeasPoints",
// item "HotSpot.Position". A key without a dot has an empty group.

#include <string>

namespace norda::exp {

template <typename K> struct GroupItem {
    K group;
    K item;
};

inline GroupItem<std::string> discriminate(const std::string& key) {
    auto dot = key.find('.');
    if (dot == std::string::npos)
        return {std::string(), key};
    return {key.substr(0, dot), key.substr(dot + 1)};
}

} // namespace norda::exp
