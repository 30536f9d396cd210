#pragma once
// Files of the output folder named from outside (a request, a command's argument): a plain name
// inside the folder, never a path that leaves it.

#include <stdexcept>
#include <string>

namespace nordacam {

class BadFileName : public std::invalid_argument {
public:
    using std::invalid_argument::invalid_argument;
};

// `folder`/`name` for a plain file name ([A-Za-z0-9._-], no leading dot, at most 128 characters);
// throws BadFileName otherwise.
std::string fileInFolder(const std::string& folder, const std::string& name);

} // namespace nordacam
