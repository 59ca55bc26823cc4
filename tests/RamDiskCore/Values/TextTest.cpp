#include "RamDiskCore/Values/Text.h"

#include "tests/support/Testing.h"

namespace ramdisk {
namespace {

using ::testing::ElementsAre;

constexpr std::string_view family = "👨‍👩‍👧"; // three people joined to one character

TEST(TextTest, TrimsUnicodeWhiteSpaceAndOnlyThat) {
    struct Row {
        std::string_view text;
        std::string_view expected;
    };
    for (const auto& row : {
             Row{"", ""}, Row{" \t\r\n\v\f ", ""}, Row{"\u00A0\u2003 a b \u2028\u2029\u0085\u3000", "a b"},
             Row{"\u200Bé\u200B", "\u200Bé\u200B"}, // a zero-width space is no white space
             Row{"\x1C"
                 "a",
                 "\x1C"
                 "a"},
             Row{" \xFF ", "\xFF"}, Row{"\x85 a \xA0", "\x85 a \xA0"}, // broken text: only ASCII blanks go
         }) {
        EXPECT_EQ(trimmed(row.text), row.expected);
    }
}

TEST(TextTest, CountsWhatPeopleCallCharacters) {
    EXPECT_THAT(graphemes("a\r\nb"), ElementsAre("a", "\r\n", "b"));
    EXPECT_THAT(graphemes("e\u0301\u0302x"), ElementsAre("e\u0301\u0302", "x"));
    EXPECT_THAT(graphemes("🇩🇪🇫🇷"), ElementsAre("🇩🇪", "🇫🇷"));
    EXPECT_THAT(graphemes("\u1112\u1161\u11AB"), ElementsAre("\u1112\u1161\u11AB"));
    EXPECT_THAT(graphemes("a\xFF\xC3"), ElementsAre("a", "\xFF", "\xC3"));
    EXPECT_EQ(graphemeCount(family), 1U);
    EXPECT_EQ(graphemeCount(""), 0U);
}

TEST(TextTest, CutsBetweenCharactersOnly) {
    const auto text = "a" + std::string(family) + "b";
    EXPECT_EQ(prefixOfWholeCharacters(text, 1 + family.size()), "a" + std::string(family));
    EXPECT_EQ(prefixOfWholeCharacters(text, family.size()), "a");
    EXPECT_EQ(prefixOfWholeCharacters(text, 0), "");
    EXPECT_EQ(prefixOfWholeCharacters(text, 1000), text);
}

TEST(TextTest, TakesNamesForOneAnotherAsPeopleDo) {
    struct Row {
        std::string_view left;
        std::string_view right;
        bool equal;
    };
    for (const auto& row : {
             Row{"RAMDisk", " ramdisk\n", true},
             Row{"Café", "cafe", true},
             Row{"CAFE\u0301", "café", true},
             Row{"Ångström", "angstrom", true},
             Row{"STRASSE", "straße", true},
             Row{"\u212A", "k", true}, // the Kelvin sign
             Row{"İstanbul", "istanbul", true},
             Row{"ΣΟΦΟΣ", "σοφος", true},
             Row{"\u1FB3", "\u03B1\u0345", true}, // an iota below, composed and apart
             Row{"한", "\u1112\u1161\u11AB", true},
             Row{"й", "и", true},
             Row{"a b", "ab", false},
             Row{"a b", "a\u00A0b", false},
             Row{"RAMDisk", "RAMDisk 2", false},
             Row{"ø", "o", false}, // a letter of its own
             Row{"a\xFF", "a\xFF ", true},
             Row{"a\xFF", "a\xFE", false},
             Row{"a", "a\xFF", false},
             Row{"กิน", "กัน", false}, // where marks are vowels
             Row{"が", "か", false},
             Row{"\u0301", "\u0301", true}, // a mark alone is all there is of a name
             Row{"\u0301", "\u0302", false},
             Row{"\u0301", "x", false},
         }) {
        EXPECT_EQ(namesEqual(row.left, row.right), row.equal) << row.left << " and " << row.right;
        EXPECT_EQ(namesEqual(row.right, row.left), row.equal) << row.right << " and " << row.left;
        EXPECT_EQ(foldedName(row.left) == foldedName(row.right), row.equal)
            << row.left << " and " << row.right;
    }
}

TEST(TextTest, AnEmptyNameEqualsNone) {
    for (const std::string_view name : {"", " \u00A0", "\u0301", "a"}) {
        EXPECT_FALSE(namesEqual("", name)) << name;
        EXPECT_FALSE(namesEqual(name, " ")) << name;
    }
}

TEST(TextTest, ReplacesEachBrokenSequenceOnce) {
    struct Row {
        std::string_view text;
        std::string_view expected;
    };
    for (const auto& row : {
             Row{"Café 😀", "Café 😀"},
             Row{"a\xFFz", "a\uFFFDz"},
             Row{"\xE2\x82z", "\uFFFDz"},     // cut short
             Row{"\xF0\x9F\x98", "\uFFFD"},   // cut short by the end
             Row{"\xC0\xAF", "\uFFFD\uFFFD"}, // over-long
             Row{"\xE0\x80\x80", "\uFFFD\uFFFD\uFFFD"},
             Row{"\xED\xA0\x80", "\uFFFD\uFFFD\uFFFD"}, // a surrogate
             Row{"\xF4\x90\x80\x80", "\uFFFD\uFFFD\uFFFD\uFFFD"},
             Row{std::string_view("a\0b", 3), std::string_view("a\0b", 3)},
         }) {
        EXPECT_EQ(replacingInvalidUTF8(row.text), row.expected);
    }
}

} // namespace
} // namespace ramdisk
