// Boot and crash video capture: the reported recordings and their times,
// the switches written (and bad values refused), the crash trigger event and
// the clean-up of the recorded video when both captures are off.
#include <gtest/gtest.h>

#include <dirent.h>
#include <sys/stat.h>
#include <ctime>
#include <tuple>

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
        system(("cd '" + h.root().dir() + "' && rm -rf tmp/bootcapture tmp/crashcapture tmp/video").c_str());
    }

    // The status-change time of a file of the root as the agent reports it.
    std::string ctimeOf(const std::string& controllerPath)
    {
        struct stat st;
        char text[64];
        if (controllerPath[0] != '/' || stat(h.root().path(controllerPath).c_str(), &st) != 0) {
            return "NA";
        }
        return std::string(ctime_r(&st.st_ctime, text)).substr(0, 24);
    }

    // The names of a directory of the root in directory-read order.
    std::vector<std::string> entries(const std::string& controllerPath)
    {
        std::vector<std::string> names;
        DIR* dir = opendir(h.root().path(controllerPath).c_str());
        for (dirent* e; dir != nullptr && (e = readdir(dir)) != nullptr;) {
            if (e->d_name[0] != '.') {
                names.push_back(e->d_name);
            }
        }
        if (dir != nullptr) {
            closedir(dir);
        }
        return names;
    }

    // The boot, stop-on-POST and crash switches as "0"/"1" digits.
    std::string switches()
    {
        std::string out;
        for (const char* name :
             {"pm_bool_capture_boot_sequence", "pm_bool_stop_on_bios_post", "pm_bool_enable_crash_video_capture"}) {
            bool value = false;
            out += aim.getProperty(name, value) ? (value ? "1" : "0") : "?";
        }
        return out;
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

    // The boot capture lies where "pm_str_boot_capture_file_path" says:
    // folder, file created in it (null: no folder; "": empty folder), name reported.
    const std::tuple<const char*, const char*, std::string> cases[] = {
        {"/tmp/bootcapture", nullptr, "NA"},
        {"/tmp/bootcapture", "", "NA"},
        {"/var/captures/long", "nnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnn",
         std::string(63, 'n')},
        {"relative/boot", nullptr, "NA"},
    };
    for (const auto& [dir, file, reported] : cases) {
        aim.setProperty("pm_str_boot_capture_file_path", dir, true);
        if (file != nullptr) {
            h.root().makeDirs(dir);
            if (*file != '\0') {
                h.root().writeFile(std::string(dir) + "/" + file, "x");
            }
        }
        EXPECT_EQ(std::string("<root><bootCaptureEnabled>1</bootCaptureEnabled>\n<bootCaptureDirPath>") + dir +
                      "</bootCaptureDirPath>\n<bootCaptureFilename>" + reported +
                      "</bootCaptureFilename>\n<bootCaptureFileCreationTime>" +
                      ctimeOf(std::string(dir) + "/" + reported) +
                      "</bootCaptureFileCreationTime>\n<bootCaptureStopOnPost>0</bootCaptureStopOnPost>\n"
                      "<status>ok</status>\n</root>\n",
                  h.request("get=videoBootCapture"))
            << dir;
    }
    // Other names read nothing; an unreadable switch fails the read.
    EXPECT_EQ(kOk, h.request("get=crashCaptureEnabled,bootCaptureEnabled"));
    h.root().writeFile("/var/aim/faults/get.pm_bool_enable_crash_video_capture", "");
    EXPECT_EQ(kFailed, h.request("get=videoCrashCapture"));
}

TEST_F(VideoCapture, WritesAndRefusals)
{
    const std::string refused = "<root><status>error</status><errorMsg>Insufficient privileges</errorMsg></root>";
    // request, privileges, reply, switches stored afterwards (boot, stop on POST, crash)
    const std::tuple<const char*, int, std::string, const char*> cases[] = {
        {"set=videoBootCapture(0,1)", 0x02, kOk, "011"},
        {"set=videoBootCapture(1,0)", 0x7d, refused, "011"},
        {"set=bootCaptureEnabled:1", 0x00, kOk, "111"},
        {"set=bootCaptureStopOnPost:0", 0x02, kOk, "101"},
        {"set=videoCrashCapture:0", 0x02, kOk, "100"},
        {"set=crashCaptureEnabled:1", 0x02, kOk, "101"},
        {"set=bootCaptureEnabled:0,crashCaptureEnabled:7", 0x02, kFailed, "001"},  // stored up to the bad value
    };
    for (const auto& [request, mask, reply, stored] : cases) {
        EXPECT_EQ(reply, h.request(request, mask)) << request;
        EXPECT_EQ(stored, switches()) << request;
    }
    // Malformed values fail the request and change nothing.
    for (const char* request : {"set=videoBootCapture:1", "set=videoBootCapture(1,2)", "set=videoBootCapture(x,0)",
                                "set=videoBootCapture(1,)", "set=crashCaptureEnabled:", "set=crashCaptureEnabled:-1",
                                "set=bootCaptureStopOnPost:1x"}) {
        EXPECT_EQ(kFailed, h.request(request, 0x02)) << request;
        EXPECT_EQ("001", switches()) << request;
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
    EXPECT_EQ("1 4 event_server_crash vexil_data_", std::to_string(records[0].hasNumber) + " " +
                                                        std::to_string(records[0].number) + " " + records[0].name +
                                                        " " + records[0].payload.substr(0, 11));
    long stamp = atol(records[0].payload.c_str() + 11);
    EXPECT_TRUE(stamp >= before && stamp <= after) << records[0].payload;

    // Known on from the earlier request; a refused event does not fail it.
    EXPECT_EQ(kOk, h.request("set=crashCaptureTrigger:1"));
    EXPECT_EQ(2u, crashEvents().size());
    h.root().writeFile("/var/aim/faults/event.event_server_crash", "");
    EXPECT_EQ(kOk, h.request("set=crashCaptureTrigger:1"));
    EXPECT_EQ(2u, crashEvents().size());
    EXPECT_EQ('1', switches()[2]);
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
    EXPECT_TRUE(h.root().exists("/tmp/video") && h.root().exists("/tmp/keep.dvr"));
}

}  // namespace
