// The BIOS schema and token document readers, fed from memory streams.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <utility>

#include "BIOSToken.h"
#include "bios_schema.h"

namespace {

// Reads a schema the way the store does, into the store's emptied maps. Returns
// the GUID read ("-" when getGuidValue failed), then the three maps,
// "|"-separated, as "id=name(option:value[*] ...)".
std::string readSchema(std::string text)
{
    BIOSToken* store = BIOSToken::getBIOSTokenInstance();
    store->clearTokenMaps();
    FILE* f = fmemopen(&text[0], text.size(), "r");
    char guid[kBiosXmlBufferSize] = "";
    std::string out = getGuidValue(f, guid) ? guid : "-";
    getBiosParamsHeader(f);
    while (getGroup(f)) {
    }
    fclose(f);
    for (int type = 0; type < 3; ++type) {
        out += type == 0 ? " " : "| ";
        for (const auto& [id, info] : store->getTokenMap(static_cast<BIOSTokenType>(type))) {
            out += id + "=" + info->settingName + "(";
            for (const auto& [name, option] : info->options) {
                out += name + ":" + std::to_string(option.value) + (option.isDefault ? "* " : " ");
            }
            out += ") ";
        }
    }
    return out;
}

std::string schema(const std::string& groups)
{
    return "<?xml version=\"1.0\"?>\n<schema version=\"1\">\n <bios-header>\n  <guid value=\"g-1 x\" />\n"
           "  <other value=\"o\" />\n </bios-header>\n <bios-params>\n" +
           groups + " </bios-params>\n</schema>\n";
}

std::string setting(const std::string& target, const std::string& name = "N")
{
    return "<setting target=\"" + target + "\" name=\"" + name + "\" type=\"enum\">\n<option name=\"On\" value=\"1\" " +
           "default=\"true\" />\n</setting>\n";
}

std::string group(const std::string& name, const std::string& content)
{
    return "<group name=\"" + name + "\">\n" + content + "</group>\n";
}

TEST(BiosSchema, SchemasAndDeviatingOnes)
{
    const std::string n99(99, 'n'), on = "(On:1* ) ";
    const std::string a = group("Main", setting("A")), d = group("Server Management", setting("D"));
    const std::string values =
        "<setting target=\"V\" name=\"V\">\n<option name=\"a\" value=\"12\" />\n<option "
        "name=\"b\" value=\"\" />\n<option name=\"c\" value=\"1a\" />\n<option name=\"d\" "
        "value=\"-1\" />\n<option name=\"e\" value=\"000000000000000000000000000000042\" />\n<option name=\"f\" "
        "value=\"7\" isdefault />\n"
        "</setting>\n";
    // Target tokens end at a blank, a repeated one replaces the earlier, texts are cut to 99 characters, option
    // values to 27 (the 42 is lost); a value that is not all digits is 255. A deviating element stops the reading.
    const std::pair<std::string, std::string> cases[] = {
        {schema(group("Main", setting("Two words", "First") + setting("Dup", "Old") + setting("Dup") +
                                  setting(std::string(150, 'n'), std::string(150, 'n'))) +
                group("Advanced", "<subgroup name=\"CPU\">\n" + setting("T") + "</subgroup>\n<subgroup name=\"M\">\n" +
                                      setting("U") + "</subgroup>\n") +
                group("Server Management", values)),
         "g-1 Dup=N" + on + "Two=First" + on + n99 + "=" + n99 + on + "| T=N" + on + "U=N" + on +
             "| V=V(a:12 b:0 c:255 d:255 e:0 f:7* ) "},
        {schema(a).substr(schema(a).find('\n') + 1), "- | | "},  // no declaration
        {schema(a + group("Other", setting("X")) + d), "g-1 A=N" + on + "| | "},
        {schema(a + group("Advanced", setting("C")) + d), "g-1 A=N" + on + "| | "},  // no subgroup
        {schema(group("Main", "") + group("Advanced", "") + d), "g-1 | | D=N" + on},
    };
    for (const auto& [text, expected] : cases) {
        EXPECT_EQ(expected, readSchema(text)) << text;
    }
}

TEST(BiosSchema, TokenDocuments)
{
    const std::pair<std::string, std::string> cases[] = {
        {"<?xml version=\"1.0\" ?>\n<bios-params>\n<A value=\"Power Off\" />\n<B value=\"Power Off\" />\n"
         "</bios-params>\n",
         "A=Power B=Power Off "},  // the first value stops at a blank, later ones do not
        {"<?xml?><bios-params><A value=\"1\" /><B value=\"tw", "A=1 "},
    };
    for (auto [text, expected] : cases) {
        std::string read;
        FILE* f = fmemopen(&text[0], text.size(), "r");
        char name[kBiosXmlBufferSize], value[kBiosXmlBufferSize];
        for (bool ok = getFirstToken(f, name, value); ok || getNextToken(f, name, value); ok = false) {
            read += std::string(name) + "=" + value + " ";
        }
        fclose(f);
        EXPECT_EQ(expected, read) << text;
    }
}

}  // namespace
