// The property store's name encoding and file parsers.
#include <gtest/gtest.h>

#include <string>

#include "AIMStore.h"

namespace {
bool parse(const std::string& data, AIMStore::Value& value)
{
    return AIMStore::parseValue(data.data(), data.size(), value);
}
}  // namespace

TEST(AIMStore, NamesEncodeToOneSafeFileNameAndBack)
{
    const std::string names[] = {"../x", "..",      "a/b", " b",     "line\nbreak",
                                 "%41",  ".hidden", "a.b", "ümlaut", std::string("nul\0x", 5)};
    for (const std::string& name : names) {
        std::string encoded, back;
        ASSERT_TRUE(AIMStore::encodeName(name, encoded)) << name;
        EXPECT_EQ(std::string::npos, encoded.find_first_of(std::string("/ \n\t\0", 5))) << encoded;
        EXPECT_NE('.', encoded[0]) << encoded;
        ASSERT_TRUE(AIMStore::decodeName(encoded, back)) << encoded;
        EXPECT_EQ(name, back);
    }
    std::string encoded, name;
    EXPECT_FALSE(AIMStore::encodeName("", encoded));
    EXPECT_FALSE(AIMStore::encodeName(std::string(81, '/'), encoded));  // 243 bytes encoded
    EXPECT_TRUE(AIMStore::encodeName(std::string(80, '/'), encoded));
    // Non-canonical file names would let two files claim one property.
    for (const char* file : {"%41", "%2f", ".x", "%", "%4", "%zz", "a b", ""}) {
        EXPECT_FALSE(AIMStore::decodeName(file, name)) << file;
    }
}

TEST(AIMStore, ValueFiles)
{
    const AIMStore::Value values[] = {{AIMStore::kInt, "-2147483648"},
                                      {AIMStore::kInt, "2147483647"},
                                      {AIMStore::kBool, "0"},
                                      {AIMStore::kStr, ""},
                                      {AIMStore::kStr, "100% \n\r\x7f\x01 ünï"},
                                      {AIMStore::kStr, std::string(255, 'x')},
                                      {AIMStore::kCrypt, "pw %\n"},
                                      {AIMStore::kCrypt, ""}};
    for (const AIMStore::Value& v : values) {
        AIMStore::Value back;
        ASSERT_TRUE(parse(AIMStore::formatValue(v), back)) << v.text;
        EXPECT_EQ(v.type, back.type);
        EXPECT_EQ(v.text, back.text);
    }
    EXPECT_EQ(std::string::npos, AIMStore::formatValue({AIMStore::kCrypt, "hunter2"}).find("hunter2"));

    AIMStore::Value v;
    // No final line end needed: the value itself is what is wrong.
    const std::string tooLong = "str\n" + std::string(256, 'x'), nul("str\nab\0c", 8);
    const std::string bad[] = {"",           "int",        "str\nok\nmore", "int\n12x", "int\n2147483648",
                               "int\n+1",    "bool\nyes",  "text\nabc",     "STR\nabc", "str\nabc%4",
                               "str\na%00b", "crypt\nabc", "crypt\nzz",     tooLong,    nul,
                               "int\n1\n\n"};
    for (const std::string& data : bad) {
        EXPECT_FALSE(parse(data, v)) << data;
    }
    // Hand-written files: no final line end, bool words, lower-case escapes.
    const std::pair<const char*, const char*> handWritten[] = {
        {"int\n-7", "-7"}, {"bool\ntrue\n", "1"}, {"str\na%0ab\n", "a\nb"}};
    for (auto [file, text] : handWritten) {
        ASSERT_TRUE(parse(file, v)) << file;
        EXPECT_EQ(text, v.text);
    }
}

TEST(AIMStore, FixtureHeaders)
{
    // More forms are run through the client's function calls.
    const struct {
        std::string data;
        bool ok;
        int code;
        std::string output;
    } cases[] = {{"ok", true, 0, ""}, {"ok \r\n\nx\n", true, 0, "\nx\n"}, {"fail -3\n", false, -3, ""}};
    bool ok = false;
    int code = 0;
    size_t offset = 0;
    for (const auto& c : cases) {
        ASSERT_TRUE(AIMStore::parseFixture(c.data.data(), c.data.size(), ok, code, offset)) << c.data;
        EXPECT_EQ(c.ok, ok) << c.data;
        EXPECT_EQ(c.code, code) << c.data;
        EXPECT_EQ(c.output, c.data.substr(offset)) << c.data;
    }
    for (const std::string bad : {"fail 0\n", "fail x\n", "okay\n", "\nok\n"}) {
        EXPECT_FALSE(AIMStore::parseFixture(bad.data(), bad.size(), ok, code, offset)) << bad;
    }
}

TEST(AIMStore, RecordLines)
{
    const AIMStore::Record r{"1700000000.000123", true, -4, "odd name", std::string("\0\n\xff", 3)};
    AIMStore::Record back;
    const std::string line = AIMStore::formatRecord(r);
    EXPECT_EQ("1700000000.000123 -4 odd%20name 000aff", line);
    ASSERT_TRUE(AIMStore::parseRecord(line, back));
    EXPECT_EQ(r.name, back.name);
    EXPECT_EQ(r.payload, back.payload);
    EXPECT_EQ(-4, back.number);

    ASSERT_TRUE(AIMStore::parseRecord("1.5 - ev -", back));
    EXPECT_FALSE(back.hasNumber);
    EXPECT_EQ("", back.payload);
    for (const char* bad :
         {"", "1.5 - ev", "1.5 - ev - x", "x.5 - ev -", "1.5 4 ev abc", "1.5 - %zz -", "1.5  ev -", "15 - ev -"}) {
        EXPECT_FALSE(AIMStore::parseRecord(bad, back)) << bad;
    }
}
