#include "value_object.h"

#include <gtest/gtest.h>

#include "row_entity.h"

namespace {

using Zarvo::NativeRdb::RowEntity;
using Zarvo::NativeRdb::ValueObject;

TEST(ValueObjectTest, ConvertsToIntegers) {
    EXPECT_EQ(static_cast<int>(ValueObject(int64_t{-5})), -5);
    EXPECT_EQ(static_cast<int>(ValueObject(int64_t{2147483647})), 2147483647);
    EXPECT_EQ(static_cast<int>(ValueObject(int64_t{0x100000007})), 7);
    EXPECT_EQ(static_cast<int64_t>(ValueObject(int64_t{0x100000007})), int64_t{0x100000007});
    EXPECT_EQ(static_cast<int>(ValueObject(std::string("42"))), 42);
    EXPECT_EQ(static_cast<int>(ValueObject(std::string("-42"))), -42);
    EXPECT_EQ(static_cast<int>(ValueObject(std::string("42a"))), 0);
    EXPECT_EQ(static_cast<int>(ValueObject(std::string(" 42"))), 0);
    EXPECT_EQ(static_cast<int>(ValueObject(std::string("99999999999999999999"))), 0);
    EXPECT_EQ(static_cast<int>(ValueObject(3.9)), 3);
    EXPECT_EQ(static_cast<int>(ValueObject(1e300)), 0);
    EXPECT_EQ(static_cast<int>(ValueObject()), 0);
    EXPECT_EQ(static_cast<int>(ValueObject(ValueObject::Blob{1, 2})), 0);
}

TEST(ValueObjectTest, ConvertsToText) {
    EXPECT_EQ(static_cast<std::string>(ValueObject(int64_t{-9223372036854775807 - 1})),
              "-9223372036854775808");
    EXPECT_EQ(static_cast<std::string>(ValueObject(2.5)), "2.5");
    EXPECT_EQ(static_cast<std::string>(ValueObject()), "");
    EXPECT_EQ(static_cast<std::string>(ValueObject(std::string("a\0b", 3))), std::string("a\0b", 3));
    EXPECT_EQ(static_cast<std::string>(ValueObject(ValueObject::Blob{'h', 'i'})), "hi");
}

TEST(RowEntityTest, TheFirstColumnOfANameWins) {
    RowEntity row;
    row.Put("_id", 0, ValueObject(1));
    row.Put("_id", 1, ValueObject(2));
    EXPECT_EQ(static_cast<int>(row.Get("_id")), 1);
    EXPECT_EQ(static_cast<int>(row.Get(1)), 2);
    EXPECT_EQ(row.Get(2).GetType(), ValueObject::TypeId::TYPE_NULL);
    EXPECT_EQ(row.Get(-1).GetType(), ValueObject::TypeId::TYPE_NULL);
    row.Clear();
    EXPECT_EQ(row.Get("_id").GetType(), ValueObject::TypeId::TYPE_NULL);
}

}  // namespace
