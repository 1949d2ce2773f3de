#include "TestRoot.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace {
std::string envOr(const char* name, const std::string& fallback)
{
    const char* v = getenv(name);
    return (v != nullptr && *v != '\0') ? v : fallback;
}

int runCommand(const std::string& cmd)
{
    return system(cmd.c_str());
}
}  // namespace

std::string TestRoot::binDir()
{
    return envOr("GDS_BIN_DIR", GDS_BUILD_DIR "/bin");
}

std::string TestRoot::libDir()
{
    return envOr("GDS_LIB_DIR", GDS_BUILD_DIR "/lib");
}

std::string TestRoot::simRoot()
{
    return envOr("GDS_SIM_ROOT", GDS_SOURCE_DIR "/sim/root");
}

std::string TestRoot::simPlatform(const std::string& name)
{
    std::string dir = simRoot() + "/../platforms/" + name;
    struct stat st;
    return !name.empty() && stat(dir.c_str(), &st) == 0 && S_ISDIR(st.st_mode) ? dir : "";
}

TestRoot::TestRoot(bool seedFromSim, const std::string& platform)
{
    std::string base = envOr("GDS_TEST_TMP", GDS_BUILD_DIR "/test-roots");
    mkdir(base.c_str(), 0755);
    std::string name = "root-";
    if (const ::testing::TestInfo* info = ::testing::UnitTest::GetInstance()->current_test_info()) {
        name += std::string(info->test_suite_name()) + "." + info->name() + "-";
    }
    for (char& c : name) {
        if (c == '/' || c == ' ') {
            c = '_';
        }
    }
    m_dir = base + "/" + name + "XXXXXX";
    if (mkdtemp(&m_dir[0]) == nullptr) {
        ADD_FAILURE() << "mkdtemp failed for " << m_dir;
    }
    if (seedFromSim) {
        EXPECT_EQ(0, runCommand("cp -a '" + simRoot() + "/.' '" + m_dir + "/'"));
        std::string overlay = simPlatform(platform);
        if (!overlay.empty()) {
            EXPECT_EQ(0, runCommand("cp -a '" + overlay + "/.' '" + m_dir + "/'"));
        }
    }
    if (const char* old = getenv("GDS_ROOT")) {
        m_hadRoot = true;
        m_savedRoot = old;
    }
    setenv("GDS_ROOT", m_dir.c_str(), 1);
    // The stand-ins read their fault files and values at every call, so
    // what a test writes takes effect at once (servers started here inherit
    // it). A test of the snapshots themselves sets its own interval.
    setenv("GDS_STANDIN_RECHECK_MS", "0", 0);
}

TestRoot::~TestRoot()
{
    if (m_hadRoot) {
        setenv("GDS_ROOT", m_savedRoot.c_str(), 1);
    } else {
        unsetenv("GDS_ROOT");
    }
    // Keep the root of a failed test for a post-mortem.
    const ::testing::TestInfo* info = ::testing::UnitTest::GetInstance()->current_test_info();
    if (info == nullptr || !info->result()->Failed()) {
        runCommand("rm -rf '" + m_dir + "'");
    }
}

std::string TestRoot::path(const std::string& controllerPath) const
{
    if (!controllerPath.empty() && controllerPath[0] == '/') {
        return m_dir + controllerPath;
    }
    return m_dir + "/" + controllerPath;
}

void TestRoot::makeDirs(const std::string& controllerPath) const
{
    runCommand("mkdir -p '" + path(controllerPath) + "'");
}

std::string TestRoot::writeFile(const std::string& controllerPath, const std::string& content) const
{
    std::string p = path(controllerPath);
    std::string dir = p.substr(0, p.find_last_of('/'));
    runCommand("mkdir -p '" + dir + "'");
    std::ofstream out(p, std::ios::binary | std::ios::trunc);
    out << content;
    return p;
}

std::string TestRoot::readFile(const std::string& controllerPath) const
{
    std::ifstream in(path(controllerPath), std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

bool TestRoot::exists(const std::string& controllerPath) const
{
    return access(path(controllerPath).c_str(), F_OK) == 0;
}
