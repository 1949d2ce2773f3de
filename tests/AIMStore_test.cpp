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

TEST(AIMStore, HostileNamesEncodeToOneSafeFileNameAndBack)
{
    const std::string names[] = {"../x", "..",      ".",           "a/b",    "/etc/passwd",
                                 " b",   "a b",     "line\nbreak", "tab\tx", "%41",
                                 "%",    ".hidden", "a.b.c",       "ümlaut", std::string("nul\0x", 5),
                                 "-"};
    for (const std::string& name : names) {
        std::string encoded;
        ASSERT_TRUE(AIMStore::encodeName(name, encoded)) << name;
        EXPECT_EQ(std::string::npos, encoded.find('/')) << encoded;
        EXPECT_NE('.', encoded[0]) << encoded;
        EXPECT_EQ(std::string::npos, encoded.find_first_of(std::string(" \n\t\0", 4))) << encoded;
        std::string back;
        ASSERT_TRUE(AIMStore::decodeName(encoded, back)) << encoded;
        EXPECT_EQ(name, back);
    }
    std::string encoded;
    EXPECT_FALSE(AIMStore::encodeName("", encoded));
    EXPECT_FALSE(AIMStore::encodeName(std::string(81, '/'), encoded));  // 243 bytes encoded
    EXPECT_TRUE(AIMStore::encodeName(std::string(80, '/'), encoded));
}

TEST(AIMStore, DecodeAcceptsOnlyTheCanonicalForm)
{
    // Each of these would decode to a name whose encoding differs, so two
    // files could otherwise claim the same property.
    for (const char* file : {"%41", "%2f", ".x", "%", "%4", "%zz", "a b", ""}) {
        std::string name;
        EXPECT_FALSE(AIMStore::decodeName(file, name)) << file;
    }
}

TEST(AIMStore, ValuesSurviveFormatAndParse)
{
    const AIMStore::Value values[] = {
        {AIMStore::kInt, "-2147483648"},
        {AIMStore::kInt, "2147483647"},
        {AIMStore::kBool, "0"},
        {AIMStore::kStr, ""},
        {AIMStore::kStr, "100% \n\r\x7f\x01 ünï"},
        {AIMStore::kStr, std::string(255, 'x')},
        {AIMStore::kCrypt, "pass word%\n"},
        {AIMStore::kCrypt, ""},
    };
    for (const AIMStore::Value& v : values) {
        std::string file = AIMStore::formatValue(v);
        AIMStore::Value back;
        ASSERT_TRUE(parse(file, back)) << file;
        EXPECT_EQ(v.type, back.type);
        EXPECT_EQ(v.text, back.text);
    }
    std::string secret = AIMStore::formatValue({AIMStore::kCrypt, "hunter2"});
    EXPECT_EQ(std::string::npos, secret.find("hunter2"));
}

TEST(AIMStore, ParserRejectsMalformedFiles)
{
    const char* bad[] = {
        "",
        "int",
        "int\n",
        "int\n12x\n",
        "int\n2147483648\n",
        "int\n+1\n",
        "int\n1\n\n",
        "bool\nyes\n",
        "text\nabc\n",
        "str\nabc%\n",
        "str\nabc%4\n",
        "str\na%00b\n",
        "crypt\nabc\n",
        "crypt\nzz\n",
        "str\nok\nmore",
        "STR\nabc\n",
    };
    for (const char* data : bad) {
        AIMStore::Value v;
        EXPECT_FALSE(parse(data, v)) << data;
    }
    AIMStore::Value v;
    EXPECT_FALSE(parse("str\n" + std::string(256, 'x') + "\n", v));
    EXPECT_FALSE(parse(std::string("str\nab\0c\n", 9), v));
    // Hand-written files: no final line end, bool words, lower-case escapes.
    ASSERT_TRUE(parse("int\n-7", v));
    EXPECT_EQ("-7", v.text);
    ASSERT_TRUE(parse("bool\ntrue\n", v));
    EXPECT_EQ("1", v.text);
    ASSERT_TRUE(parse("str\na%0ab\n", v));
    EXPECT_EQ("a\nb", v.text);
}

TEST(AIMStore, FixtureHeaders)
{
    struct Case {
        std::string data;
        bool valid;
        bool ok;
        int code;
        std::string output;
    };
    const Case cases[] = {
        {"ok\nout", true, true, 0, "out"},
        {"ok", true, true, 0, ""},
        {"ok \r\n\nx\n", true, true, 0, "\nx\n"},
        {"fail\nignored", true, false, 1, "ignored"},
        {"fail 7\n", true, false, 7, ""},
        {"fail -3\n", true, false, -3, ""},
        {"fail 0\n", false, false, 0, ""},
        {"fail x\n", false, false, 0, ""},
        {"okay\n", false, false, 0, ""},
        {"\nok\n", false, false, 0, ""},
        {std::string(100, 'o') + "\n", false, false, 0, ""},
    };
    for (const Case& c : cases) {
        bool ok = false;
        int code = 0;
        size_t offset = 0;
        ASSERT_EQ(c.valid, AIMStore::parseFixture(c.data.data(), c.data.size(), ok, code, offset)) << c.data;
        if (c.valid) {
            EXPECT_EQ(c.ok, ok) << c.data;
            EXPECT_EQ(c.code, code) << c.data;
            EXPECT_EQ(c.output, c.data.substr(offset)) << c.data;
        }
    }
}

TEST(AIMStore, RecordLines)
{
    AIMStore::Record r;
    r.time = "1700000000.000123";
    r.hasNumber = true;
    r.number = -4;
    r.name = "odd name";
    r.payload = std::string("\0\n\xff", 3);
    std::string line = AIMStore::formatRecord(r);
    EXPECT_EQ("1700000000.000123 -4 odd%20name 000aff", line);
    AIMStore::Record back;
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
