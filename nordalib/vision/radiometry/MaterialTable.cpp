#include "nordalib/vision/radiometry/MaterialTable.h"

#include "nordalib/core/exception/Exception.h"

#include <fmt/format.h>

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

constexpr const char* kIncropera = "Incropera, DeWitt et al., Fundamentals of Heat and Mass Transfer, "
                                   "6th ed., Wiley 2007, Table A.11/A.12 (total, near 300 K)";

} // namespace

// Transcribed from the publications as they are commonly quoted; not re-checked against the
// originals on the development machine.
MaterialTable MaterialTable::builtIn() {
    MaterialTable t;
    t.m_materials = {
        {"aluminium, polished", 0.05, kIncropera},
        {"aluminium, anodised", 0.82, kIncropera},
        {"brick, red", 0.93, kIncropera},
        {"concrete", 0.88, kIncropera},
        {"glass, window", 0.90, kIncropera},
        {"paint, black", 0.98, kIncropera},
        {"paint, white acrylic", 0.90, kIncropera},
        {"wood", 0.82, kIncropera},
        {"snow", 0.82, kIncropera},
        {"skin, human", 0.98,
         "J. Steketee, Spectral emissivity of skin and pericardium, Phys. Med. Biol. 18, 686 (1973), 2-14 "
         "um"},
        {"water", 0.98,
         "K. Masuda, T. Takashima, Y. Takayama, Emissivity of pure and sea waters for the model sea "
         "surface in the infrared window regions, Remote Sens. Environ. 24, 313 (1988), 8-14 um, nadir"},
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

std::string MaterialTable::format() const {
    std::string out = "# name; emissivity; source\n";
    for (const auto& m : m_materials)
        out += fmt::format("{}; {}; {}\n", m.name, m.emissivity, m.source); // shortest exact number
    return out;
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
