#include "RamDiskCore/Values/VolumePassphrase.h"

#include "tests/support/Testing.h"

#include <new>

namespace ramdisk::test {
namespace {

/// Whether any byte of the secret still stands in the string object or in its buffer.
bool holds(const void* object, std::size_t size, char byte) {
    const auto* bytes = static_cast<const char*>(object);
    return std::count(bytes, bytes + size, byte) >= 4;
}

TEST(VolumePassphraseTest, NeverPrints) {
    std::ostringstream stream;
    stream << VolumePassphrase("open sesame");
    EXPECT_EQ(stream.str(), "VolumePassphrase(<redacted>)");
}

TEST(VolumePassphraseTest, CopiesAndMovesKeepTheText) {
    for (const auto& text : {std::string("short"), std::string(100, 'q')}) {
        VolumePassphrase first(text);
        VolumePassphrase copy(first);
        EXPECT_EQ(copy, first);
        VolumePassphrase moved(std::move(first));
        EXPECT_EQ(moved.value(), text);
        VolumePassphrase other("another one");
        other = moved;
        EXPECT_EQ(other.value(), text);
        other = VolumePassphrase("x");
        other = std::move(moved);
        EXPECT_EQ(other.value(), text);
        auto& same = other;
        other = same;
        EXPECT_EQ(other.value(), text);
    }
}

TEST(VolumePassphraseTest, AShortTextDoesNotStayBehindWhereItWasMovedFrom) {
    VolumePassphrase source("QQQQQQQQ");
    const VolumePassphrase target(std::move(source));
    EXPECT_TRUE(holds(&target, sizeof target, 'Q')); // short texts lie in the object itself
    EXPECT_FALSE(holds(&source, sizeof source, 'Q'));
    VolumePassphrase assigned("WWWWWWWW");
    VolumePassphrase again("QQQQQQQQ");
    assigned = std::move(again);
    EXPECT_FALSE(holds(&again, sizeof again, 'Q'));
    EXPECT_FALSE(holds(&again, sizeof again, 'W'));
}

TEST(VolumePassphraseTest, DyingWipesTheText) {
    alignas(VolumePassphrase) std::array<char, sizeof(VolumePassphrase)> memory{};
    auto* passphrase = new (memory.data()) VolumePassphrase("QQQQQQQQ");
    ASSERT_TRUE(holds(memory.data(), memory.size(), 'Q'));
    passphrase->~VolumePassphrase();
    EXPECT_FALSE(holds(memory.data(), memory.size(), 'Q'));
}

TEST(VolumePassphraseTest, WipingReachesWhatAStringWasCutFrom) {
    std::string text(64, 'Q');
    const auto* buffer = text.data();
    text.resize(2);
    wipe(text);
    EXPECT_TRUE(text.empty());
    ASSERT_EQ(text.data(), buffer);
    EXPECT_FALSE(holds(buffer, 64, 'Q'));
}

} // namespace
} // namespace ramdisk::test
