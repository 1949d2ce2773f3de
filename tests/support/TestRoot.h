// TestRoot: a throwaway platform root for one test. Creates a unique folder
// under $GDS_TEST_TMP (the build tree's test-roots), optionally seeded with a
// copy of the simulated controller (sim/root), points GDS_ROOT at it for this
// process and removes it again when the test ends. One per test, main thread.
#pragma once

#include <string>

class TestRoot {
public:
    // seedFromSim: copy sim/root into the new root first; with a platform
    // name, then copy sim/platforms/<platform> over it (as `make run
    // PLATFORM=<platform>` does).
    explicit TestRoot(bool seedFromSim = false, const std::string& platform = "");
    ~TestRoot();
    TestRoot(const TestRoot&) = delete;
    TestRoot& operator=(const TestRoot&) = delete;

    const std::string& dir() const { return m_dir; }
    // Host path of a controller path inside this root ("/etc/product" -> <dir>/etc/product).
    std::string path(const std::string& controllerPath) const;
    // Writes a file (creating its folders); returns its host path.
    std::string writeFile(const std::string& controllerPath, const std::string& content) const;
    // Reads a whole file; "" when it does not exist.
    std::string readFile(const std::string& controllerPath) const;
    bool exists(const std::string& controllerPath) const;
    void makeDirs(const std::string& controllerPath) const;

    // Folders of the build, from the test environment.
    static std::string binDir();   // build/bin
    static std::string libDir();   // build/lib
    static std::string simRoot();  // sim/root
    // sim/platforms/<name> ("" when that platform has no overlay).
    static std::string simPlatform(const std::string& name);

private:
    std::string m_dir;
    std::string m_savedRoot;
    bool m_hadRoot = false;
};
