// Name/value tables and the splitters that fill them.
#include <gtest/gtest.h>

#include <string>

#include "HashTable"

namespace {

std::string text(const CString& s) { return std::string(static_cast<const char*>(s)); }

TEST(UHashTable, ParsesLaunchParametersCaseInsensitively) {
    UPropertyList table;
    EXPECT_EQ(3, table.initFromValNameString(" a = 1 & B=2&b=3 & c", '&', '='));
    EXPECT_EQ("3", text(table.getVar("b", "none")));
    EXPECT_EQ("B", text(table.getItemByIndex(1)->m_name)) << "the first spelling stays";
    EXPECT_EQ("", text(table.getVar("C", "none"))) << "no separator: empty value";
    EXPECT_EQ("a", text(table.getItemByIndex(0)->m_name));
    EXPECT_EQ("1", text(table.getValByIndex(0, "none")));
    EXPECT_EQ("none", text(table.getValByIndex(3, "none")));
    EXPECT_EQ(nullptr, table.getItemByName(nullptr));

    EXPECT_EQ(1, table.initFromValNameString("x=1=2", '&', '='));
    EXPECT_EQ("1=2", text(table.getVar("x", ""))) << "only the first separator splits";
    EXPECT_EQ(1, table.initFromValNameString("=v", '&', '='));
    EXPECT_EQ("v", text(table.getVar("", "none"))) << "the empty name";
    EXPECT_EQ(0, table.initFromValNameString("  ", '&', '='));
    EXPECT_EQ(0, table.initFromValNameString(nullptr, '&', '='));
}

TEST(UHashTable, InitFromStringNumbersOnlyStoredItems) {
    UHashTable table;
    EXPECT_EQ(2, table.initFromString(" a,, b ,", ',', ""));
    EXPECT_EQ("a", text(table.getVar("0", "")));
    EXPECT_EQ("b", text(table.getVar("1", "")));
    EXPECT_EQ(2, table.initFromString("x y", ' ', "p"));
    EXPECT_EQ("y", text(table.getVar("P1", ""))) << "names compare without case";
}

TEST(UHashTable, FoldsAsciiLettersOnly) {
    UHashTable table;
    table.setVar("\xC4name", "1");
    table.setVar("\xE4NAME", "2");
    EXPECT_EQ(2, table.getCount());
    EXPECT_EQ("1", text(table.getVar("\xC4NAME", "")));
}

TEST(UHashTable, ThousandsOfLongParametersStayLinear) {
    std::string params;
    for (int i = 0; i < 1000; ++i) params += "name" + std::to_string(i) + "=" + std::string(4096, 'v') + "&";
    UPropertyList table;
    EXPECT_EQ(1000, table.initFromValNameString(params.c_str(), '&', '='));
    EXPECT_EQ(4096, table.getVar("NAME999", "").GetLength());
}

TEST(SplitString, FirstOrLastSeparatorWithOrWithoutTrimming) {
    CString left, right;
    EXPECT_EQ(7, SplitString("path/to/file", left, right, '/', false, true));
    EXPECT_EQ("path/to", text(left));
    EXPECT_EQ("file", text(right));
    EXPECT_EQ(3, SplitString(" a = b ", left, right, '=', true, false));
    EXPECT_EQ(" a ", text(left));
    EXPECT_EQ(" b ", text(right));
    EXPECT_EQ(-1, SplitString(" whole ", left, right, '=', false, false));
    EXPECT_EQ("whole", text(left));
    EXPECT_EQ("", text(right));
    EXPECT_EQ(-1, SplitString("", left, right, '=', false, false));
}

TEST(ParseNameValue, NeedsANonEmptyName) {
    CString name("old"), value("old");
    EXPECT_FALSE(ParseNameValue("=v", name, value));
    EXPECT_FALSE(ParseNameValue("novalue", name, value));
    EXPECT_EQ("old", text(name));
    EXPECT_TRUE(ParseNameValue(" k = v=w ", name, value));
    EXPECT_EQ("k", text(name));
    EXPECT_EQ("v=w", text(value));
}

}  // namespace
