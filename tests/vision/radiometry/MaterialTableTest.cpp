#include "nordalib/vision/radiometry/MaterialTable.h"
#include "tests/support/TempDir.h"
#include "tests/vision/TestSupport.h"

#include <gtest/gtest.h>

#include <fstream>

using norda::vision::MaterialTable;

// A user's file extends and overrides the library's table; every line it can not use is refused
// with the file, the line and the reason.
TEST(MaterialTable, UserFileExtendsTheBuiltInTableAndBadLinesAreNamed) {
    const auto builtIn = MaterialTable::builtIn();
    for (const auto& m : builtIn.materials()) {
        EXPECT_TRUE(m.emissivity > 0.0 && m.emissivity <= 1.0) << m.name;
        EXPECT_FALSE(m.source.empty()) << m.name;
    }
    norda::test::TempDir dir;
    std::ofstream(dir.file("materials.txt"))
        << "# the plant's own\n\n  Brick, Red ; 0.91 ; measured 2026 \r\n"
           "cable sheath; 0.9; our label method\n";
    const auto merged = builtIn.mergedWith(MaterialTable::load(dir.file("materials.txt")));
    EXPECT_EQ(merged.materials().size(), builtIn.materials().size() + 1);
    EXPECT_EQ(merged.at("brick, red").emissivity, 0.91);
    EXPECT_EQ(merged.at("brick, red").source, "measured 2026");
    EXPECT_EQ(merged.at("CABLE SHEATH").emissivity, 0.9);

    const std::pair<std::string, std::string> refused[] = {
        {"a; 0.9", "m line 1: expected \"name; emissivity; source\""},
        {"\n; 0.9; s", "m line 2: the material has no name"},
        {"a; 0; s", "m line 1: the emissivity of \"a\" must be a number in (0, 1], not \"0\""},
        {"a; 0.9x; s", "not \"0.9x\""},
        {"a; 0.9;  ", "m line 1: \"a\" names no source for its emissivity"},
        {"a; 0.9; s\nA; 0.8; t", "m line 2: \"A\" is listed twice"},
        {std::string(MaterialTable::kMaxBytes + 1, '#'), "m: 1048577 bytes, more than the 1048576"},
    };
    for (const auto& [text, error] : refused)
        EXPECT_NE(norda::test::messageOf([&] { MaterialTable::parse(text, "m"); }).find(error),
                  std::string::npos)
            << error;
    EXPECT_NE(norda::test::messageOf([&] {
                  (void)merged.at("unobtainium");
              }).find("unknown material \"unobtainium\" (aluminium, anodised, "),
              std::string::npos);
    EXPECT_NE(
        norda::test::messageOf([&] { MaterialTable::load(dir.file("none.txt")); }).find("can not be read"),
        std::string::npos);
}
