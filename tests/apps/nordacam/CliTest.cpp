#ifdef NORDACAM_CORE
// The command line as a user meets it: the built program, its exit codes and messages.
#include "tests/support/TempDir.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <array>
#include <cstdio>
#include <fstream>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

struct Result {
    int code = -1;
    std::string output; // standard output and error
};

Result nordacam(const std::string& args) {
    Result r;
    std::FILE* pipe = popen(("NORDA_LOG_LEVEL=error " NORDACAM_BINARY " " + args + " 2>&1").c_str(), "r");
    if (!pipe)
        return r;
    std::array<char, 4096> buf{};
    size_t n;
    while ((n = std::fread(buf.data(), 1, buf.size(), pipe)) > 0)
        r.output.append(buf.data(), n);
    const int status = pclose(pipe);
    r.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return r;
}

size_t lines(const std::string& s) {
    return static_cast<size_t>(std::count(s.begin(), s.end(), '\n'));
}

} // namespace

TEST(NordacamCli, HelpForEveryCommand) {
    for (const char* cmd :
         {"", "demo", "run", "simulate", "rix info", "rix export", "calib distortion", "serve"}) {
        const auto r = nordacam(std::string(cmd) + " --help");
        EXPECT_EQ(r.code, 0) << cmd;
        EXPECT_NE(r.output.find("Usage:"), std::string::npos) << cmd;
    }
}

TEST(NordacamCli, BadInputGivesOneLineAndNonZeroExit) {
    norda::test::TempDir dir;
    const std::string out = " --out " + dir.file("out");
    std::ofstream(dir.file("bad.json")) << R"({"Environment.EmissivityValue": )";
    std::ofstream(dir.file("unknown.json")) << R"({"Not.A.Key": 1})";
    std::ofstream(dir.file("damaged.pxm")) << "P5\n640 480\n65535\nshort";
    const std::pair<std::string, std::string> cases[] = {
        {"demo --frobnicate", "--frobnicate"},
        {"unknown-command", "unknown-command"},
        {"demo --frames 0" + out, "--frames"},
        {"demo --frames 5 --set No.Such.Key=1" + out, "unknown setting No.Such.Key"},
        {"demo --frames 5 --set Environment.EmissivityValue=high" + out, "not a valid float"},
        {"demo --frames 5 --settings " + dir.file("bad.json") + out, "malformed JSON"},
        {"demo --frames 5 --settings " + dir.file("unknown.json") + out, "unknown setting Not.A.Key"},
        {"run --input " + dir.file("missing.pxm") + out, "missing.pxm"},
        {"run --input " + dir.file("damaged.pxm") + out, "damaged.pxm"},
        {"demo --frames 5 --out /proc/forbidden", "/proc/forbidden"},
        {"rix info " + dir.file("none.RIX"), "none.RIX"},
        {"serve --port 70000" + out, "70000"},
    };
    for (const auto& [args, mention] : cases) {
        const auto r = nordacam(args);
        EXPECT_NE(r.code, 0) << args;
        EXPECT_EQ(lines(r.output), 1u) << args << "\n" << r.output;
        EXPECT_NE(r.output.find(mention), std::string::npos) << args << "\n" << r.output;
        EXPECT_EQ(r.output.rfind("nordacam: error: ", 0), 0u) << r.output;
    }
}

TEST(NordacamCli, PortInUseIsReported) {
    norda::test::TempDir dir;
    // Hold a loopback port, then ask the server for the same one.
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_GE(fd, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    addr.sin_port = 0;
    ASSERT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);
    ASSERT_EQ(::listen(fd, 1), 0);
    socklen_t len = sizeof addr;
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len);
    const int port = ntohs(addr.sin_port);
    const auto r = nordacam("serve --port " + std::to_string(port) + " --seconds 0.1 --out " + dir.file("b"));
    ::close(fd);
    EXPECT_NE(r.code, 0);
    EXPECT_NE(r.output.find("can not bind to 127.0.0.1:" + std::to_string(port)), std::string::npos)
        << r.output;
    EXPECT_EQ(lines(r.output), 1u) << r.output;

    const auto ok = nordacam("serve --port 0 --seconds 0.1 --out " + dir.file("a"));
    EXPECT_EQ(ok.code, 0) << ok.output;
    EXPECT_NE(ok.output.find("serving http://127.0.0.1:"), std::string::npos) << ok.output;
}
#endif
