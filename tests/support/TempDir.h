#pragma once
// A fresh directory under tests/tmp of the build folder, removed with everything in it: tests write
// nowhere else (not into the checkout, the working directory or the system's temporary folder).

#include <filesystem>
#include <random>
#include <string>

namespace norda::test {

class TempDir {
public:
    TempDir() {
        std::random_device rd;
        m_path = std::filesystem::path(NORDA_BINARY_DIR) / "tests" / "tmp" /
                 ("nordalib-test-" + std::to_string(rd()) + std::to_string(rd()));
        std::filesystem::create_directories(m_path);
    }
    ~TempDir() {
        std::error_code ec;
        std::filesystem::remove_all(m_path, ec);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    std::string file(const std::string& name) const { return (m_path / name).string(); }
    const std::filesystem::path& path() const { return m_path; }

private:
    std::filesystem::path m_path;
};

} // namespace norda::test
