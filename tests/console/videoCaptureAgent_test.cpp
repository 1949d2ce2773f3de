// Boot and crash video capture: the reported recording and its time, the switches written (and bad
// values refused), the crash trigger event and the clean-up of the recorded video.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <ctime>
#include <tuple>

#include "AIMClient.h"
#include "AIMStore.h"
#include "AgentHarness.h"
#include "ReplyText.h"

namespace {

const std::string kOk = okReply("");
const std::string kFailed = "<root>" + kGeneralError;

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

TEST_F(VideoCapture, ReportsBootRecordingAndTime)
{
    // The boot capture lies where "pm_str_boot_capture_file_path" says: folder, file created in it
    // ("": none), name reported (cut to 63 characters).
    const std::tuple<std::string, std::string, std::string> cases[] = {
        {"/tmp/bootcapture", "", "NA"},
        {"/var/captures/long", std::string(80, 'n'), std::string(63, 'n')},
        {"relative/boot", "", "NA"}};
    for (const auto& [dir, file, reported] : cases) {
        aim.setProperty("pm_str_boot_capture_file_path", dir.c_str(), true);
        if (!file.empty()) {
            h.root().writeFile(dir + "/" + file, "x");
        }
        std::string expected = "<bootCaptureDirPath>" + dir + "</bootCaptureDirPath>\n<bootCaptureFilename>" +
                               reported + "</bootCaptureFilename>\n<bootCaptureFileCreationTime>" +
                               ctimeOf(dir + "/" + reported);
        EXPECT_NE(std::string::npos, h.request("get=videoBootCapture").find(expected)) << dir;
    }
    // An unreadable switch fails the read.
    h.root().writeFile("/var/aim/faults/get.pm_bool_enable_crash_video_capture", "");
    EXPECT_EQ(kFailed, h.request("get=videoCrashCapture"));
}

TEST_F(VideoCapture, WritesSwitches)
{
    // request, privileges, reply, switches stored afterwards (boot, stop on POST, crash); malformed
    // values fail the request and change nothing.
    const std::tuple<const char*, int, std::string, const char*> cases[] = {
        {"set=videoBootCapture(0,1)", 0x02, kOk, "011"},
        {"set=bootCaptureEnabled:1", 0x00, kOk, "111"},
        {"set=videoCrashCapture:0", 0x02, kOk, "110"},
        {"set=crashCaptureEnabled:1", 0x02, kOk, "111"},
        {"set=bootCaptureEnabled:0,crashCaptureEnabled:7", 0x02, kFailed, "011"},  // stored up to the bad value
        {"set=videoBootCapture:1", 0x02, kFailed, "011"},
        {"set=bootCaptureStopOnPost:1x", 0x02, kFailed, "011"},
    };
    for (const auto& [request, mask, reply, stored] : cases) {
        EXPECT_EQ(reply, h.request(request, mask)) << request;
        EXPECT_EQ(stored, switches()) << request;
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
    EXPECT_TRUE(records[0].hasNumber && records[0].number == 4);
    EXPECT_EQ("event_server_crash vexil_data_", records[0].name + " " + records[0].payload.substr(0, 11));
    long stamp = atol(records[0].payload.c_str() + 11);
    EXPECT_TRUE(stamp >= before && stamp <= after) << records[0].payload;

    // Known on from the earlier request; a refused event does not fail it.
    EXPECT_EQ(kOk, h.request("set=crashCaptureTrigger:1"));
    EXPECT_EQ(2u, crashEvents().size());
    h.root().writeFile("/var/aim/faults/event.event_server_crash", "");
    EXPECT_EQ(kOk, h.request("set=crashCaptureTrigger:1"));
    EXPECT_EQ(2u, crashEvents().size());
}

TEST_F(VideoCapture, VideoIsDeletedWhenBothCapturesAreOff)
{
    h.root().writeFile("/tmp/video/seg 1.dvr", "v");
    h.root().writeFile("/tmp/video/seg2.dvr", "v");
    h.root().writeFile("/tmp/keep.dvr", "k");
    EXPECT_EQ(kOk, h.request("set=bootCaptureEnabled:0"));
    EXPECT_TRUE(h.root().exists("/tmp/video/seg 1.dvr"));
    EXPECT_EQ(kOk, h.request("set=crashCaptureEnabled:0"));
    EXPECT_FALSE(h.root().exists("/tmp/video/seg 1.dvr") || h.root().exists("/tmp/video/seg2.dvr"));
    EXPECT_TRUE(h.root().exists("/tmp/video") && h.root().exists("/tmp/keep.dvr"));
}

}  // namespace
