#include "Player/StorageId.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <sstream>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include "Player/Support/Random.h"

namespace Tavrin::Player {
namespace {

constexpr std::int64_t kLowest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kHighest = std::numeric_limits<std::int64_t>::max();

TEST(StorageId, DefaultHasAnEmptyAddressAndNoPort) {
    EXPECT_EQ(StorageId().Address(), "");
    EXPECT_EQ(StorageId().Port(), -1);
    EXPECT_EQ(StorageId().ToString(), ":-1");
}

TEST(StorageId, TwoDefaultsAreEqualAndNeitherIsLess) {
    EXPECT_TRUE(StorageId() == StorageId());
    EXPECT_FALSE(StorageId() < StorageId());
}

TEST(StorageId, ConstructorAndSetReplaceBothFields) {
    StorageId id("10.0.0.2", 5000);
    EXPECT_EQ(id.Address(), "10.0.0.2");
    EXPECT_EQ(id.Port(), 5000);
    id.Set("storage", -7);
    EXPECT_EQ(id.Address(), "storage");
    EXPECT_EQ(id.Port(), -7);
}

TEST(StorageId, CopiesAreIndependentValues) {
    StorageId original("10.0.0.2", 5000);
    const StorageId copied(original);
    StorageId assigned;
    assigned = original;
    original.Set("elsewhere", 1);
    EXPECT_TRUE(copied == StorageId("10.0.0.2", 5000));
    EXPECT_TRUE(assigned == copied);
}

TEST(StorageId, IsPolymorphic) {
    EXPECT_TRUE(std::has_virtual_destructor_v<StorageId>);
}

TEST(StorageId, SortsByAddressBeforePort) {
    EXPECT_TRUE(StorageId("10.0.0.2", 1) < StorageId("10.0.0.3", 0));
    EXPECT_FALSE(StorageId("10.0.0.3", 0) < StorageId("10.0.0.2", 1));
}

TEST(StorageId, SameAddressSortsBySignedPort) {
    EXPECT_TRUE(StorageId("a", -1) < StorageId("a", 5000));
    EXPECT_FALSE(StorageId("a", 5000) < StorageId("a", -1));
    EXPECT_TRUE(StorageId("a", kLowest) < StorageId("a", kHighest));
    EXPECT_FALSE(StorageId("a", 5) < StorageId("a", 5));
}

TEST(StorageId, EmptyAddressSortsBeforeAnyOtherWhateverThePorts) {
    EXPECT_TRUE(StorageId("", kHighest) < StorageId(std::string(1, '\0'), kLowest));
    EXPECT_TRUE(StorageId("", 9) < StorageId("a", -9));
    EXPECT_FALSE(StorageId("a", -9) < StorageId("", 9));
}

TEST(StorageId, ProperPrefixSortsFirst) {
    EXPECT_TRUE(StorageId("10.0.0.2", 9) < StorageId("10.0.0.20", 0));
    EXPECT_FALSE(StorageId("10.0.0.20", 0) < StorageId("10.0.0.2", 9));
}

TEST(StorageId, AddressesCompareAsUnsignedBytes) {
    EXPECT_TRUE(StorageId("z", 0) < StorageId("\x80", 0));
    EXPECT_TRUE(StorageId("\x7f", 0) < StorageId("\xff", 0));
}

TEST(StorageId, EqualityNeedsTheSameBytesAndThePort) {
    EXPECT_TRUE(StorageId("a", 1) == StorageId("a", 1));
    EXPECT_FALSE(StorageId("a", 1) == StorageId("a", 2));
    EXPECT_FALSE(StorageId("a", 1) == StorageId("b", 1));
    EXPECT_FALSE(StorageId("a", 1) == StorageId(std::string("a\0", 2), 1));
}

TEST(StorageId, TextIsAddressColonPort) {
    EXPECT_EQ(StorageId("10.0.0.2", 5000).ToString(), "10.0.0.2:5000");
    EXPECT_EQ(StorageId("::1", 0).ToString(), "::1:0");
}

TEST(StorageId, NegativePortPrintsWithAMinusSign) {
    EXPECT_EQ(StorageId("a", -42).ToString(), "a:-42");
    EXPECT_EQ(StorageId("a", kLowest).ToString(), "a:-9223372036854775808");
}

TEST(StorageId, StreamOperatorWritesTheTextAndNothingMore) {
    std::ostringstream out;
    out << StorageId("10.0.0.2", 5000) << StorageId();
    EXPECT_EQ(out.str(), "10.0.0.2:5000:-1");
}

TEST(StorageIdModel, OrderIsThatOfUnsignedBytesThenPort) {
    Testing::Random random(Testing::TestSeed());
    const std::vector<char> letters{'\0', '.', '1', 'a', '\x7f', '\x80', '\xff'};
    const auto make = [&] {
        std::string address;
        for (std::int64_t n = random.Between(0, 3); n > 0; --n) {
            address += random.Among(letters);
        }
        return StorageId(address, random.Between(-1, 1));
    };
    const auto key = [](const StorageId& id) {
        return std::tuple(std::vector<unsigned char>(id.Address().begin(), id.Address().end()), id.Port());
    };
    for (int i = 0; i < 5000; ++i) {
        const StorageId a = make();
        const StorageId b = make();
        EXPECT_EQ(a < b, key(a) < key(b)) << a << " and " << b;
        EXPECT_EQ(a == b, key(a) == key(b)) << a << " and " << b;
    }
}

}  // namespace
}  // namespace Tavrin::Player
