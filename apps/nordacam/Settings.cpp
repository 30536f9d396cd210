#include "apps/nordacam/Settings.h"

#include "nordalib/core/datatypes/Quantity.h"
#include "nordalib/core/datatypes/VariantRegistry.h"
#include "nordalib/core/exception/Exception.h"
#include "nordalib/core/keys/KeySchema.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/core/utils/FileUtils.h"

#include <fmt/format.h>
#include <opencv2/core.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <limits>
#include <sstream>
#include <unistd.h>

namespace nordacam {

using namespace norda::exp;
using json = nlohmann::json;

namespace {

using Temp = quantity::Temperature<MarkedFloat>;
using Rel = quantity::Relation<MarkedFloat>;

std::string trim(const std::string& s) {
    const auto b = s.find_first_not_of(" \t");
    if (b == std::string::npos)
        return {};
    return s.substr(b, s.find_last_not_of(" \t") - b + 1);
}

[[noreturn]] void fail(const std::string& key, const std::string& what) {
    throw SettingsError("setting " + key + ": " + what);
}

// An emissivity changed without its material is typed in by hand: the material chosen before no
// longer describes it, so it is forgotten with the same request.
void forgetMaterials(std::vector<std::pair<std::string, std::shared_ptr<Variant>>>& values,
                     const DataProxy<std::string>& store) {
    auto given = [&values](const std::string& key) {
        return std::find_if(values.begin(), values.end(), [&key](const auto& v) { return v.first == key; });
    };
    std::vector<std::pair<const std::string*, const std::string*>> pairs = {
        {&Id::Environment::EmissivityValue, &Id::Environment::Material}};
    for (const auto& m : userMarks())
        pairs.emplace_back(&m.emissivity, &m.material);
    for (const auto& [emissivity, material] : pairs) {
        const auto e = given(*emissivity);
        if (e != values.end() && given(*material) == values.end() &&
            e->second->value<float>() != store.getValue<float>(*emissivity))
            values.emplace_back(*material, makeVariant(std::string()));
    }
}

// A whole-string number, or nothing.
bool parseNumber(const std::string& text, double& out) {
    const std::string t = trim(text);
    if (t.empty())
        return false;
    char* end = nullptr;
    out = std::strtod(t.c_str(), &end);
    return end && *end == '\0' && std::isfinite(out);
}

template <typename T> std::shared_ptr<Variant> arithmetic(double v, const std::string& key) {
    if constexpr (std::is_same_v<T, bool>) {
        if (v != 0.0 && v != 1.0)
            fail(key, "expected a boolean, got " + fmt::format("{}", v));
        return std::make_shared<Variant_<bool>>(v != 0.0);
    } else {
        if constexpr (std::is_integral_v<T>) {
            if (v != std::floor(v))
                fail(key, "expected an integer, got " + fmt::format("{}", v));
            if (v < static_cast<double>(std::numeric_limits<T>::lowest()) ||
                v > static_cast<double>(std::numeric_limits<T>::max()))
                fail(key, fmt::format("{}", v) + " is out of range for " + typeName(typeid(T)));
        } else if (std::abs(v) > static_cast<double>(std::numeric_limits<T>::max())) {
            fail(key, "number is too big");
        }
        return std::make_shared<Variant_<T>>(static_cast<T>(v));
    }
}

// Dispatches on the arithmetic type held by `current`; nullptr when it is not arithmetic.
std::shared_ptr<Variant> arithmeticFor(const Variant& current, double v, const std::string& key) {
#define NORDA_ARITH(T)                                                                                       \
    if (current.holds<T>())                                                                                  \
        return arithmetic<T>(v, key);
    NORDA_ARITH(bool)
    NORDA_ARITH(char)
    NORDA_ARITH(signed char)
    NORDA_ARITH(unsigned char)
    NORDA_ARITH(short)
    NORDA_ARITH(unsigned short)
    NORDA_ARITH(int)
    NORDA_ARITH(unsigned int)
    NORDA_ARITH(long)
    NORDA_ARITH(unsigned long)
    NORDA_ARITH(long long)
    NORDA_ARITH(unsigned long long)
    NORDA_ARITH(float)
    NORDA_ARITH(double)
#undef NORDA_ARITH
    return nullptr;
}

bool isArithmetic(const Variant& v) {
    return v.holds<bool>() || v.holds<char>() || v.holds<signed char>() || v.holds<unsigned char>() ||
           v.holds<short>() || v.holds<unsigned short>() || v.holds<int>() || v.holds<unsigned int>() ||
           v.holds<long>() || v.holds<unsigned long>() || v.holds<long long>() ||
           v.holds<unsigned long long>() || v.holds<float>() || v.holds<double>();
}

// "25", "25C", "25 °C", "298.15K", "77F" -> a valid temperature in that unit.
bool parseShortTemperature(const std::string& text, Temp& out) {
    std::string t = trim(text);
    auto unit = quantity::TemperatureUnit::Celsius;
    auto strip = [&](const std::string& suffix) {
        if (t.size() > suffix.size() && t.compare(t.size() - suffix.size(), suffix.size(), suffix) == 0) {
            t = trim(t.substr(0, t.size() - suffix.size()));
            return true;
        }
        return false;
    };
    if (strip("°C") || strip("C"))
        unit = quantity::TemperatureUnit::Celsius;
    else if (strip("K"))
        unit = quantity::TemperatureUnit::Kelvin;
    else if (strip("°F") || strip("F"))
        unit = quantity::TemperatureUnit::Fahrenheit;
    double v = 0;
    if (!parseNumber(t, v))
        return false;
    out = Temp(MarkedFloat(static_cast<float>(v)), unit);
    return true;
}

bool parseShortRelation(const std::string& text, Rel& out) {
    std::string t = trim(text);
    double scale = 1.0;
    if (!t.empty() && t.back() == '%') {
        t = trim(t.substr(0, t.size() - 1));
        scale = 0.01;
    }
    double v = 0;
    if (!parseNumber(t, v))
        return false;
    v *= scale; // outside 0..1: refused by the key's range, which names it
    out = Rel(MarkedFloat(static_cast<float>(v)));
    return true;
}

} // namespace

std::shared_ptr<Variant> parseTextFor(const Variant& current, const std::string& text,
                                      const std::string& key) {
    if (current.holds<std::string>()) {
        // Text from the command line is raw bytes; the settings file and the API speak UTF-8.
        try {
            (void)json(text).dump();
        } catch (const json::type_error&) {
            fail(key, "the text is not valid UTF-8");
        }
        return std::make_shared<Variant_<std::string>>(text);
    }
    if (isArithmetic(current)) {
        const std::string t = trim(text);
        if (current.holds<bool>()) {
            if (t == "true" || t == "on" || t == "yes")
                return std::make_shared<Variant_<bool>>(true);
            if (t == "false" || t == "off" || t == "no")
                return std::make_shared<Variant_<bool>>(false);
        }
        double v = 0;
        if (!parseNumber(t, v)) {
            const KeySpec* keySpec = findKey(key);
            const std::string range = keySpec ? rangeText(*keySpec) : std::string();
            fail(key, "\"" + text + "\" is not a valid " + current.typeName() +
                          (range.empty() ? "" : " (" + range + ")"));
        }
        return arithmeticFor(current, v, key);
    }
    if (current.holds<Temp>()) {
        Temp t;
        if (parseShortTemperature(text, t))
            return std::make_shared<Variant_<Temp>>(t);
    }
    if (current.holds<Rel>()) {
        Rel r;
        if (parseShortRelation(text, r))
            return std::make_shared<Variant_<Rel>>(r);
    }
    const std::string tag = current.typeTag();
    if (tag.empty() || !VariantRegistry::instance().knows(tag))
        fail(key, "values of type " + current.typeName() + " can not be set");
    try {
        return VariantRegistry::instance().fromText(tag, text);
    } catch (const std::exception& e) {
        fail(key, "\"" + text + "\" is not a valid " + current.typeName() + " (" + e.what() + ")");
    }
}

std::shared_ptr<Variant> parseJsonFor(const Variant& current, const json& value, const std::string& key) {
    if (value.is_boolean()) {
        if (!current.holds<bool>())
            fail(key, "expected " + current.typeName() + ", got a boolean");
        return std::make_shared<Variant_<bool>>(value.get<bool>());
    }
    if (value.is_number()) {
        if (current.holds<bool>())
            fail(key, "expected a boolean, got " + value.dump());
        if (isArithmetic(current))
            return arithmeticFor(current, value.get<double>(), key);
        if (current.holds<Temp>() || current.holds<Rel>())
            return parseTextFor(current, value.dump(), key);
        fail(key, "expected " + current.typeName() + ", got a number");
    }
    if (value.is_string()) {
        if (isArithmetic(current) && !current.holds<bool>())
            fail(key, "expected a number, got a string");
        return parseTextFor(current, value.get<std::string>(), key);
    }
    if (value.is_array() && current.holds<std::vector<std::string>>()) {
        std::vector<std::string> v;
        for (const auto& item : value) {
            if (!item.is_string())
                fail(key, "expected a list of strings");
            v.push_back(item.get<std::string>());
        }
        return std::make_shared<Variant_<std::vector<std::string>>>(std::move(v));
    }
    fail(key, "expected " + current.typeName() + ", got " + std::string(value.type_name()));
}

json toJson(const Variant& value) {
    if (value.holds<bool>())
        return value.value<bool>();
    if (value.holds<std::string>())
        return value.value<std::string>();
    if (isArithmetic(value)) {
        // Through the text form, so a float 0.95 stays 0.95 and not 0.949999988.
        double d = 0;
        if (parseNumber(value.toString(), d)) {
            if (!value.holds<float>() && !value.holds<double>() && d == std::floor(d) && std::abs(d) < 9.0e15)
                return static_cast<long long>(d);
            return d;
        }
        return value.toString();
    }
    if (value.holds<std::vector<std::string>>())
        return value.value<std::vector<std::string>>();
    if (value.holds<cv::Mat>()) {
        const auto& m = value.value<cv::Mat>();
        return "matrix " + std::to_string(m.cols) + "x" + std::to_string(m.rows) + " type " +
               std::to_string(m.type());
    }
    if (value.typeTag().empty())
        return "<" + value.typeName() + ">";
    try {
        return value.toString();
    } catch (const std::exception&) {
        return "<" + value.typeName() + ">";
    }
}

std::vector<std::string> userSettingKeys(const DataProxy<std::string>& store) {
    std::vector<std::string> out;
    for (const auto& key : store.keys())
        if (const KeySpec* keySpec = findKey(key); keySpec && keySpec->saved())
            out.push_back(key);
    return out;
}

bool isWritableSetting(const std::string& key) {
    // Keys the schema does not know (an element's activity key) are the host's to set.
    const KeySpec* keySpec = findKey(key);
    return !keySpec || keySpec->writable();
}

std::shared_ptr<Variant> Settings::current(const std::string& key) const {
    std::shared_ptr<Variant> v;
    try {
        if (m_store.contains(key))
            v = m_store.get(key);
    } catch (const std::exception&) {
        v = nullptr;
    }
    if (!v)
        throw SettingsError("unknown setting " + key);
    if (!isWritableSetting(key))
        throw SettingsError("setting " + key + " is read-only");
    return v;
}

std::shared_ptr<Variant> Settings::inRange(const std::string& key, std::shared_ptr<Variant> v) const {
    if (const KeySpec* keySpec = findKey(key))
        if (const std::string problem = rangeProblem(*keySpec, *v); !problem.empty())
            fail(key, problem);
    return v;
}

std::shared_ptr<Variant> Settings::valueAfter(const std::string& key) const {
    auto it = m_pending.find(key);
    return it != m_pending.end() ? it->second : m_store.get(key);
}

void Settings::setAll(std::vector<std::pair<std::string, std::shared_ptr<Variant>>> values,
                      const std::string& origin) {
    forgetMaterials(values, m_store);
    m_pending = {values.begin(), values.end()};
    try {
        for (const auto& [key, value] : values) {
            auto it = m_checks.find(key);
            if (it == m_checks.end())
                continue;
            if (const std::string problem = it->second(*value); !problem.empty())
                fail(key, problem);
        }
    } catch (const SettingsError& e) {
        m_pending.clear();
        throw SettingsError(origin.empty() ? std::string(e.what()) : origin + ": " + e.what());
    }
    m_pending.clear();
    for (auto& [key, value] : values)
        m_store.set(key, value, true);
}

void Settings::apply(const json& object, const std::string& origin) {
    if (!object.is_object())
        throw SettingsError(origin + ": expected a JSON object of key/value pairs");
    std::lock_guard<std::mutex> lock(m_applyMutex);
    std::vector<std::pair<std::string, std::shared_ptr<Variant>>> parsed;
    for (const auto& [key, value] : object.items()) {
        try {
            parsed.emplace_back(key, inRange(key, parseJsonFor(*current(key), value, key)));
        } catch (const SettingsError& e) {
            throw SettingsError(origin + ": " + e.what());
        }
    }
    setAll(std::move(parsed), origin);
}

void Settings::loadFile(const std::string& path) {
    std::ifstream in(path);
    if (!in)
        throw SettingsError("settings file " + path + ": can not be read");
    json object;
    try {
        object = json::parse(in);
    } catch (const json::parse_error& e) {
        std::string what = e.what();
        std::replace(what.begin(), what.end(), '\n', ' ');
        throw SettingsError("settings file " + path + ": malformed JSON (" + what + ")");
    }
    apply(object, "settings file " + path);
    m_path = path;
}

void Settings::applyAssignment(const std::string& assignment) {
    const auto eq = assignment.find('=');
    if (eq == std::string::npos || eq == 0)
        throw SettingsError("--set " + assignment + ": expected KEY=VALUE");
    const std::string key = trim(assignment.substr(0, eq));
    const std::string text = assignment.substr(eq + 1);
    std::lock_guard<std::mutex> lock(m_applyMutex);
    setAll({{key, inRange(key, parseTextFor(*current(key), text, key))}}, "");
}

void Settings::set(const std::string& key, const json& value) {
    std::lock_guard<std::mutex> lock(m_applyMutex);
    setAll({{key, inRange(key, parseJsonFor(*current(key), value, key))}}, "");
}

json Settings::get(const std::string& key) const {
    if (!m_store.contains(key))
        throw SettingsError("unknown setting " + key);
    return toJson(*m_store.get(key));
}

json Settings::userSettings() const {
    json out = json::object();
    for (const auto& key : userSettingKeys(m_store))
        out[key] = toJson(*m_store.get(key));
    return out;
}

void Settings::save() const {
    if (m_path.empty())
        throw SettingsError("no settings file to save to");
    std::lock_guard<std::mutex> lock(m_saveMutex);
    // Keep what the file holds beyond our keys (a newer version's settings, for instance).
    json out = json::object();
    {
        std::ifstream in(m_path);
        if (in) {
            try {
                auto old = json::parse(in);
                if (old.is_object())
                    out = old;
            } catch (const json::parse_error&) {
                // A damaged file is replaced as a whole.
            }
        }
    }
    const json mine = userSettings();
    for (const auto& [key, value] : mine.items())
        out[key] = value;

    const std::string text = out.dump(2) + "\n";
    try {
        norda::utils::writeFileAtomically(m_path, text.data(), text.size());
    } catch (const norda::Exception& e) {
        throw SettingsError(std::string("settings file not saved, the old one is kept: ") + e.what());
    }
}

} // namespace nordacam
