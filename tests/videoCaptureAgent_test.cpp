// Boot and crash video capture: the reported recordings and their times,
// the switches written (and bad values refused), the crash trigger event and
// the clean-up of the recorded video when both captures are off.
#include <gtest/gtest.h>

#include <dirent.h>
#include <sys/stat.h>
#include <ctime>

#include "AIMClient.h"
#include "AIMStore.h"
#include "AgentHarness.h"

namespace {

const char kOk[] = "<root><status>ok</status>\n</root>\n";
const char kFailed[] =
    "<root><status>error</status>\n<errorMsg>The current operation failed. BRESK may be running any critical "
    "operation or in error state. Retry after sometime or reboot BRESK if necessary </errorMsg>\n</root>\n";

class VideoCapture : public testing::Test {
protected:
    void SetUp() override
    {
        h.server().setDefaultProperties();
        aim.initialize();
        for (const char* dir : {"/tmp/bootcapture", "/tmp/crashcapture", "/tmp/video"}) {
            system(("rm -rf '" + h.root().path(dir) + "'").c_str());
        }
    }

    // The status-change time of a file of the root as the agent reports it.
    std::string ctimeOf(const std::string& controllerPath)
    {
        struct stat st;
        if (controllerPath[0] != '/' || stat(h.root().path(controllerPath).c_str(), &st) != 0) {
            return "NA";
        }
        char text[64];
        ctime_r(&st.st_ctime, text);
        return std::string(text, strlen(text) - 1);
    }

    // The names of a directory of the root in directory-read order.
    std::vector<std::string> entries(const std::string& controllerPath)
    {
        std::vector<std::string> names;
        DIR* dir = opendir(h.root().path(controllerPath).c_str());
        for (dirent* e; dir != nullptr && (e = readdir(dir)) != nullptr;) {
            if (strcmp(e->d_name, ".") != 0 && strcmp(e->d_name, "..") != 0) {
                names.push_back(e->d_name);
            }
        }
        if (dir != nullptr) {
            closedir(dir);
        }
        return names;
    }

    bool flag(const char* name)
    {
        bool value = false;
        EXPECT_TRUE(aim.getProperty(name, value)) << name;
        return value;
    }

    AgentHarness h;
    AIMClient aim{"test", 1};
};

TEST_F(VideoCapture, ReportsRecordingsAndTimes)
{
    for (const char* name : {"c1.dvc", "c2.dvc", "c3.dvc", "c4.dvc"}) {
        h.root().writeFile(std::string("/tmp/crashcapture/") + name, "c");
    }
    std::string third = entries("/tmp/crashcapture")[2];  // the third met in directory order
    EXPECT_EQ(
        "<root><crashCaptureEnabled>1</crashCaptureEnabled>\n"
        "<crashCaptureDirPath>/tmp/crashcapture</crashCaptureDirPath>\n<crashCaptureFilename>" +
            third + "</crashCaptureFilename>\n<crashCaptureFileCreationTime>" + ctimeOf("/tmp/crashcapture/" + third) +
            "</crashCaptureFileCreationTime>\n<status>ok</status>\n</root>\n",
        h.request("get=videoCrashCapture"));

    // The boot capture lies where "pm_str_boot_capture_file_path" says.
    const struct {
        const char* dir;
        const char* file;  // created in it (null: no folder; "": empty folder)
        std::string reported;
    } cases[] = {
        {"/tmp/bootcapture", nullptr, "NA"},
        {"/tmp/bootcapture", "", "NA"},
        {"/var/captures/boot", "b.dvc", "b.dvc"},
        {"/var/captures/long", "nnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnn",
         std::string(63, 'n')},
        {"relative/boot", nullptr, "NA"},
    };
    for (const auto& c : cases) {
        aim.setProperty("pm_str_boot_capture_file_path", c.dir, true);
        if (c.file != nullptr) {
            h.root().makeDirs(c.dir);
            if (*c.file != '\0') {
                h.root().writeFile(std::string(c.dir) + "/" + c.file, "x");
            }
        }
        EXPECT_EQ(std::string("<root><bootCaptureEnabled>1</bootCaptureEnabled>\n<bootCaptureDirPath>") + c.dir +
                      "</bootCaptureDirPath>\n<bootCaptureFilename>" + c.reported +
                      "</bootCaptureFilename>\n<bootCaptureFileCreationTime>" +
                      ctimeOf(std::string(c.dir) + "/" + c.reported) +
                      "</bootCaptureFileCreationTime>\n<bootCaptureStopOnPost>0</bootCaptureStopOnPost>\n"
                      "<status>ok</status>\n</root>\n",
                  h.request("get=videoBootCapture"))
            << c.dir;
    }
    // Other names read nothing; an unreadable switch fails the read.
    EXPECT_EQ(kOk, h.request("get=crashCaptureEnabled,bootCaptureEnabled"));
    h.root().writeFile("/var/aim/faults/get.pm_bool_enable_crash_video_capture", "");
    EXPECT_EQ(kFailed, h.request("get=videoCrashCapture"));
}

TEST_F(VideoCapture, WritesAndRefusals)
{
    struct Case {
        const char* request;
        int mask;
        std::string reply;
        bool boot, stop, crash;  // stored afterwards
    };
    const std::string refused = "<root><status>error</status><errorMsg>Insufficient privileges</errorMsg></root>";
    const std::vector<Case> cases = {
        {"set=videoBootCapture(0,1)", 0x02, kOk, false, true, true},
        {"set=videoBootCapture(1,0)", 0x7d, refused, false, true, true},
        {"set=videoBootCapture:1", 0x02, kFailed, false, true, true},
        {"set=videoBootCapture(1,2)", 0x02, kFailed, false, true, true},
        {"set=videoBootCapture(x,0)", 0x02, kFailed, false, true, true},
        {"set=videoBootCapture(1,)", 0x02, kFailed, false, true, true},
        {"set=bootCaptureEnabled:1", 0x00, kOk, true, true, true},
        {"set=bootCaptureStopOnPost:0", 0x02, kOk, true, false, true},
        {"set=videoCrashCapture:0", 0x02, kOk, true, false, false},
        {"set=crashCaptureEnabled:1", 0x02, kOk, true, false, true},
        {"set=crashCaptureEnabled:", 0x02, kFailed, true, false, true},
        {"set=crashCaptureEnabled:-1", 0x02, kFailed, true, false, true},
        {"set=bootCaptureStopOnPost:1x", 0x02, kFailed, true, false, true},
        {"set=bootCaptureEnabled:0,crashCaptureEnabled:7", 0x02, kFailed, false, false, true},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(c.reply, h.request(c.request, c.mask)) << c.request;
        EXPECT_EQ(c.boot, flag("pm_bool_capture_boot_sequence")) << c.request;
        EXPECT_EQ(c.stop, flag("pm_bool_stop_on_bios_post")) << c.request;
        EXPECT_EQ(c.crash, flag("pm_bool_enable_crash_video_capture")) << c.request;
    }
}

TEST_F(VideoCapture, CrashTrigger)
{
    auto crashEvents = [] {
        std::vector<AIMStore::Record> records;
        AIMStore::readEvents(records);
        return records;
    };
    // A fresh connection does not know the capture is on: nothing happens.
    AIMStore::clearRecords();
    EXPECT_EQ(kOk, h.request("set=crashCaptureTrigger:"));
    EXPECT_TRUE(crashEvents().empty());

    long before = static_cast<long>(time(nullptr));
    EXPECT_EQ(kOk, h.request("set=crashCaptureEnabled:1,crashCaptureTrigger:1"));
    long after = static_cast<long>(time(nullptr));
    std::vector<AIMStore::Record> records = crashEvents();
    ASSERT_EQ(1u, records.size());
    EXPECT_TRUE(records[0].hasNumber);
    EXPECT_EQ(4, records[0].number);
    EXPECT_EQ("event_server_crash", records[0].name);
    ASSERT_EQ(0u, records[0].payload.find("vexil_data_"));
    long stamp = atol(records[0].payload.c_str() + 11);
    EXPECT_TRUE(stamp >= before && stamp <= after) << records[0].payload;
    EXPECT_TRUE(flag("pm_bool_enable_crash_video_capture"));

    // Known on from the earlier request; a refused event does not fail it.
    EXPECT_EQ(kOk, h.request("set=crashCaptureTrigger:1"));
    EXPECT_EQ(2u, crashEvents().size());
    h.root().writeFile("/var/aim/faults/event.event_server_crash", "");
    EXPECT_EQ(kOk, h.request("set=crashCaptureTrigger:1"));
    EXPECT_EQ(2u, crashEvents().size());
    EXPECT_TRUE(flag("pm_bool_enable_crash_video_capture"));
}

TEST_F(VideoCapture, VideoIsDeletedWhenBothCapturesAreOff)
{
    h.root().writeFile("/tmp/video/seg 1.dvr", "v");
    h.root().writeFile("/tmp/video/seg2.dvr", "v");
    h.root().writeFile("/tmp/keep.dvr", "k");
    EXPECT_EQ(kOk, h.request("set=bootCaptureEnabled:0"));
    EXPECT_EQ(2u, entries("/tmp/video").size());
    EXPECT_EQ(kOk, h.request("set=crashCaptureEnabled:0"));
    EXPECT_TRUE(entries("/tmp/video").empty());
    EXPECT_TRUE(h.root().exists("/tmp/video"));
    EXPECT_TRUE(h.root().exists("/tmp/keep.dvr"));
}

}  // namespace
