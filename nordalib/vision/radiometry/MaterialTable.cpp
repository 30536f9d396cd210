#include "nordalib/vision/radiometry/MaterialTable.h"

#include "nordalib/core/exception/Exception.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace norda::vision {

namespace {

std::string trim(const std::string& s) {
    const auto begin = s.find_first_not_of(" \t\r");
    if (begin == std::string::npos)
        return {};
    return s.substr(begin, s.find_last_not_of(" \t\r") - begin + 1);
}

std::string lower(std::string s) {
    std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    return s;
}

// Total emissivities near 300 K of the nonmetal and metal-oxide tables of a standard heat
// transfer textbook; where the table gives a range, its lower end (the source says so).
std::string incropera(const char* table, const char* range = "") {
    return std::string("Incropera, DeWitt et al., Fundamentals of Heat and Mass Transfer, 6th ed., "
                       "Wiley 2007, Table ") +
           table + ", near 300 K" + (*range ? std::string(", listed as ") + range : std::string());
}

} // namespace

// Only values whose table and figure are well established; materials whose published values
// scatter (polished metals, wood, tapes) are left to the user's file, with the user's source.
MaterialTable MaterialTable::builtIn() {
    MaterialTable t;
    t.m_materials = {
        {"aluminium, anodised", 0.82, incropera("A.11")},
        {"brick, red", 0.93, incropera("A.12", "0.93-0.96")},
        {"concrete", 0.88, incropera("A.12", "0.88-0.93")},
        {"glass, window", 0.90, incropera("A.12", "0.90-0.95")},
        {"paint, black", 0.98, incropera("A.12")},
        {"paint, white acrylic", 0.90, incropera("A.12")},
        {"skin, human", 0.98,
         "J. Steketee, Spectral emissivity of skin and pericardium, Phys. Med. Biol. 18, 686 (1973), "
         "0.98 +/- 0.01 over 3-14 um"},
        {"snow", 0.82, incropera("A.12", "0.82-0.90")},
        {"water", 0.96, incropera("A.12")},
    };
    return t;
}

MaterialTable MaterialTable::parse(const std::string& text, const std::string& origin) {
    auto fail = [&origin](size_t line, const std::string& what) {
        NORDA_THROW(origin + " line " + std::to_string(line) + ": " + what,
                    "norda::vision::MaterialTable::parse");
    };
    if (text.size() > kMaxBytes)
        NORDA_THROW(origin + ": " + std::to_string(text.size()) + " bytes, more than the " +
                        std::to_string(kMaxBytes) + " a material table may have",
                    "norda::vision::MaterialTable::parse");
    MaterialTable t;
    std::istringstream in(text);
    std::string raw;
    for (size_t number = 1; std::getline(in, raw); ++number) {
        const std::string line = trim(raw);
        if (line.empty() || line[0] == '#')
            continue;
        const auto a = line.find(';');
        const auto b = a == std::string::npos ? a : line.find(';', a + 1);
        if (b == std::string::npos)
            fail(number, "expected \"name; emissivity; source\"");
        Material m{trim(line.substr(0, a)), 0.0, trim(line.substr(b + 1))};
        const std::string value = trim(line.substr(a + 1, b - a - 1));
        char* end = nullptr;
        m.emissivity = value.empty() ? NAN : std::strtod(value.c_str(), &end);
        if (m.name.empty())
            fail(number, "the material has no name");
        if (value.empty() || *end != '\0' || !(m.emissivity > 0.0 && m.emissivity <= 1.0))
            fail(number,
                 "the emissivity of \"" + m.name + "\" must be a number in (0, 1], not \"" + value + "\"");
        if (m.source.empty())
            fail(number, "\"" + m.name + "\" names no source for its emissivity");
        if (t.find(m.name))
            fail(number, "\"" + m.name + "\" is listed twice");
        if (t.m_materials.size() == kMaxMaterials)
            fail(number, "more than " + std::to_string(kMaxMaterials) + " materials");
        t.m_materials.push_back(std::move(m));
    }
    return t;
}

MaterialTable MaterialTable::load(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in)
        NORDA_THROW("material table " + path + " can not be read", "norda::vision::MaterialTable::load");
    std::string text(kMaxBytes + 1, '\0');
    in.read(text.data(), std::streamsize(text.size()));
    text.resize(size_t(in.gcount()));
    return parse(text, "material table " + path);
}

const Material* MaterialTable::find(const std::string& name) const {
    const std::string key = lower(trim(name));
    for (const auto& m : m_materials)
        if (lower(m.name) == key)
            return &m;
    return nullptr;
}

const Material& MaterialTable::at(const std::string& name) const {
    if (const Material* m = find(name))
        return *m;
    std::string known;
    for (const auto& m : m_materials)
        known += (known.empty() ? "" : ", ") + m.name;
    NORDA_THROW("unknown material \"" + name + "\" (" + known + ")", "norda::vision::MaterialTable::at");
}

MaterialTable MaterialTable::mergedWith(const MaterialTable& user) const {
    MaterialTable t = *this;
    for (const auto& m : user.m_materials) {
        auto it = std::find_if(t.m_materials.begin(), t.m_materials.end(),
                               [&](const Material& x) { return lower(x.name) == lower(m.name); });
        if (it != t.m_materials.end())
            *it = m;
        else
            t.m_materials.push_back(m);
    }
    return t;
}

} // namespace norda::vision
