#pragma once
// MaterialTable: emissivities of common materials, each with where its value was published, so
// that a user picks "brick, red" instead of typing 0.93. The library's own table and a user's
// file of the same form, whose entries replace or extend it.
//
// File (UTF-8 text): one material a line, "name; emissivity; source". Lines starting with '#' and
// blank lines are skipped; spaces around the fields are not part of them. A name is not empty and
// unique regardless of case; the emissivity is a number in (0, 1]; the source is not empty (a
// value nobody can check is no help). At most 1 MiB and 10000 materials.
//
// The published values are mostly total emissivities near room temperature; a camera's band
// (7.5-14 um) sees values close to them for these materials, not equal. The sources name the
// quantity where the publication does.

#include <string>
#include <vector>

namespace norda::vision {

struct Material {
    std::string name;
    double emissivity = 1.0;
    std::string source;
    bool operator==(const Material&) const = default;
};

class MaterialTable {
public:
    static constexpr size_t kMaxBytes = 1 << 20;
    static constexpr size_t kMaxMaterials = 10000;

    // The library's table.
    static MaterialTable builtIn();
    // Parses `text`; throws norda::Exception naming `origin`, the line and what is wrong.
    static MaterialTable parse(const std::string& text, const std::string& origin = "materials");
    // Reads and parses a file (throws like parse, and when it can not be read or is too large).
    static MaterialTable load(const std::string& path);

    // The material of that name (case-insensitive), nullptr when there is none.
    const Material* find(const std::string& name) const;
    // The same; throws norda::Exception naming the material and the known ones.
    const Material& at(const std::string& name) const;
    const std::vector<Material>& materials() const { return m_materials; }
    // `user`'s materials replace those of the same name and follow the others.
    MaterialTable mergedWith(const MaterialTable& user) const;

private:
    std::vector<Material> m_materials;
};

} // namespace norda::vision
