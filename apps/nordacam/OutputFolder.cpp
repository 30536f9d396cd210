#include "apps/nordacam/OutputFolder.h"

#include <cctype>
#include <filesystem>

namespace nordacam {

std::string fileInFolder(const std::string& folder, const std::string& name) {
    if (name.empty() || name.size() > 128 || name[0] == '.')
        throw BadFileName("invalid file name \"" + name + "\"");
    for (char c : name)
        if (!(std::isalnum(static_cast<unsigned char>(c)) || c == '.' || c == '_' || c == '-'))
            throw BadFileName("invalid file name \"" + name + "\": use letters, digits, '.', '_' and '-'");
    return (std::filesystem::path(folder) / name).string();
}

} // namespace nordacam
