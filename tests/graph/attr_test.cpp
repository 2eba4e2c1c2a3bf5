#include <gtest/gtest.h>

#include "graph/attr_utils.h"
#include "graph/op_desc.h"
#include "graph/shape.h"

namespace {

using tov::AttrUtils;
using tov::AttrValue;

TEST(AttrTest, MissingAttributeFailsAndLeavesValuesUntouched) {
  tov::OpDesc desc("n", "T");
  AttrValue value;
  EXPECT_NE(desc.GetAttr("absent", value), tov::GRAPH_SUCCESS);
  EXPECT_TRUE(value.IsEmpty());
  int64_t number = 7;
  EXPECT_FALSE(AttrUtils::GetInt(desc, "absent", number));
  EXPECT_EQ(number, 7);
  EXPECT_NE(desc.DelAttr("absent"), tov::GRAPH_SUCCESS);
}

TEST(AttrTest, ReadsOfAnotherKindFail) {
  tov::OpDesc desc("n", "T");
  AttrUtils::SetStr(desc, "ksize", "3");
  AttrUtils::SetListFloat(desc, "axes", {1.0f});
  AttrUtils::SetInt(desc, "crops", 1);
  std::vector<int64_t> list;
  int64_t number = 0;
  bool flag = false;
  EXPECT_FALSE(AttrUtils::GetListInt(desc, "ksize", list));
  EXPECT_FALSE(AttrUtils::GetListInt(desc, "axes", list));
  EXPECT_FALSE(AttrUtils::GetListInt(desc, "crops", list));
  EXPECT_FALSE(AttrUtils::GetInt(desc, "ksize", number));
  EXPECT_FALSE(AttrUtils::GetBool(desc, "crops", flag));
}

TEST(AttrTest, EmptyListReadsAsAnyKindAndIntListReadsAs32Bit) {
  tov::OpDesc desc("n", "T");
  AttrUtils::SetListInt(desc, "empty", {});
  std::vector<float> floats{1.0f};
  std::vector<std::string> strings{"x"};
  EXPECT_TRUE(AttrUtils::GetListFloat(desc, "empty", floats));
  EXPECT_TRUE(AttrUtils::GetListStr(desc, "empty", strings));
  EXPECT_TRUE(floats.empty());
  EXPECT_TRUE(strings.empty());

  AttrUtils::SetListInt(desc, "pad", {1, -2, 3});
  std::vector<int32_t> narrow;
  ASSERT_TRUE(AttrUtils::GetListInt(desc, "pad", narrow));
  EXPECT_EQ(narrow, (std::vector<int32_t>{1, -2, 3}));
  AttrUtils::SetListInt(desc, "wide", {int64_t{1} << 40});
  EXPECT_FALSE(AttrUtils::GetListInt(desc, "wide", narrow));
}

TEST(AttrTest, SetReplacesAndAttributesStaySorted) {
  tov::OpDesc desc("n", "T");
  desc.SetAttr("b", AttrValue::CreateFrom(int64_t{1}));
  desc.SetAttr("a", AttrValue::CreateFrom(true));
  desc.SetAttr("b", AttrValue::CreateFrom(2.5f));
  ASSERT_EQ(desc.GetAllAttrs().size(), 2u);
  EXPECT_EQ(desc.GetAllAttrs()[0].first, "a");
  float value = 0;
  EXPECT_TRUE(AttrUtils::GetFloat(desc, "b", value));
  EXPECT_EQ(value, 2.5f);
}

TEST(AttrTest, NullHolderAdaptersFailQuietly) {
  std::shared_ptr<tov::OpDesc> none;
  bool flag = false;
  EXPECT_FALSE(AttrUtils::GetBool(none, "x", flag));
  EXPECT_FALSE(AttrUtils::SetBool(none, "x", true));
}

TEST(ShapeTest, ScalarAndElementCounts) {
  tov::Shape scalar(std::vector<int64_t>{});
  EXPECT_EQ(scalar.GetDimNum(), 0u);
  int64_t count = 0;
  EXPECT_TRUE(scalar.GetShapeSize(count));
  EXPECT_EQ(count, 1);
  EXPECT_FALSE(tov::Shape({-1, 3}).GetShapeSize(count));
  EXPECT_FALSE(tov::Shape({int64_t{1} << 32, int64_t{1} << 32}).GetShapeSize(count));
  EXPECT_TRUE(tov::Shape({2, 0, int64_t{1} << 62}).GetShapeSize(count));
  EXPECT_EQ(count, 0);
  EXPECT_EQ(tov::Shape({1, 2}), tov::Shape({1, 2}));
  EXPECT_NE(tov::Shape({1, 2}), tov::Shape({1, 2, 1}));
}

}  // namespace
