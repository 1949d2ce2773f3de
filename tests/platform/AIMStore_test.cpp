// The property store's name encoding and file parsers.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "AIMStore.h"

TEST(AIMStore, NamesEncodeToOneSafeFileNameAndBack)
{
    const std::string names[] = {"../x", "..", "a/b", " b", "line\nbreak", "%41", ".hidden", std::string("n\0x", 3)};
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
    for (const char* file : {"%41", "%2f", ".x", "%4", "%zz", "a b", ""}) {
        EXPECT_FALSE(AIMStore::decodeName(file, name)) << file;
    }
}

TEST(AIMStore, ValueFiles)
{
    const AIMStore::Value values[] = {
        {AIMStore::kInt, "-2147483648"}, {AIMStore::kStr, "100% \n\r\x7f\x01 ünï"}, {AIMStore::kCrypt, "pw %\n"}};
    for (const AIMStore::Value& v : values) {
        AIMStore::Value back;
        const std::string data = AIMStore::formatValue(v);
        ASSERT_TRUE(AIMStore::parseValue(data.data(), data.size(), back)) << v.text;
        EXPECT_EQ(v.type, back.type);
        EXPECT_EQ(v.text, back.text);
    }
    EXPECT_EQ(std::string::npos, AIMStore::formatValue({AIMStore::kCrypt, "hunter2"}).find("hunter2"));
    // Hand-written files: no final line end, bool words, lower-case escapes.
    const std::pair<const char*, const char*> handWritten[] = {
        {"int\n-7", "-7"}, {"bool\ntrue\n", "1"}, {"str\na%0ab\n", "a\nb"}};
    AIMStore::Value v;
    for (auto [file, text] : handWritten) {
        ASSERT_TRUE(AIMStore::parseValue(file, strlen(file), v)) << file;
        EXPECT_EQ(text, v.text);
    }
    const std::string nul("str\nab\0c", 8), tooLong = "str\n" + std::string(256, 'x');
    const std::string refused[] = {
        "int\n2147483648", "str\nok\nmore", "str\na%00b", "crypt\nzz", "STR\nabc", nul, "", tooLong};
    for (const std::string& file : refused) {
        EXPECT_FALSE(AIMStore::parseValue(file.data(), file.size(), v)) << file;
    }
}
