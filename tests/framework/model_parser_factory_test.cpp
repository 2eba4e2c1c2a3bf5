// The registry of parser creators.
#include <memory>
#include <stdexcept>

#include <gtest/gtest.h>

#include "framework/model_parser.h"

namespace {

using tesu::FrameworkType;

class TaggedParser : public tesu::ModelParser {
 public:
  explicit TaggedParser(int value) : tag(value) {}
  tesu::Status ParseFromMemory(tesu::ParserOptions&, std::vector<tov::BaseBuffer>&,
                               tov::Graph&) override {
    return tesu::SUCCESS;
  }
  tesu::Status ToJson(const char*, const char*) override { return tesu::SUCCESS; }
  int tag;
};

tesu::ModelParserCreator CreatorWithTag(int tag) {
  return [tag] { return std::make_shared<TaggedParser>(tag); };
}

class FactoryTest : public ::testing::Test {
 protected:
  void SetUp() override { factory_.Clear(); }
  void TearDown() override { factory_.Clear(); }
  int CreatedTag(FrameworkType type) {
    auto parser = std::dynamic_pointer_cast<TaggedParser>(factory_.CreateModelParser(type));
    return parser == nullptr ? -1 : parser->tag;
  }
  tesu::ModelParserFactory& factory_ = *tesu::ModelParserFactory::Instance();
};

// The name given with the accepted creator is kept, until the factory is cleared.
TEST_F(FactoryTest, FirstValidCreatorPerFrameworkWinsWithItsNameAndTypesAreListedAscending) {
  EXPECT_TRUE(factory_.RegisterCreator(tesu::FRAMEWORK_ORVANE, CreatorWithTag(1), "First"));
  EXPECT_FALSE(factory_.RegisterCreator(tesu::FRAMEWORK_ORVANE, CreatorWithTag(2), "Second"));
  EXPECT_FALSE(factory_.RegisterCreator(static_cast<FrameworkType>(-1), CreatorWithTag(3)));
  EXPECT_FALSE(factory_.RegisterCreator(tesu::FRAMEWORK_MAX, CreatorWithTag(3)));
  EXPECT_FALSE(factory_.RegisterCreator(static_cast<FrameworkType>(3), nullptr));
  EXPECT_TRUE(factory_.RegisterCreator(static_cast<FrameworkType>(3), CreatorWithTag(3)));
  EXPECT_EQ(CreatedTag(tesu::FRAMEWORK_ORVANE), 1);
  EXPECT_EQ(CreatedTag(static_cast<FrameworkType>(9)), -1);
  EXPECT_EQ(factory_.RegistrationCount(), 2u);
  EXPECT_EQ(factory_.RegisteredTypes(),
            (std::vector<FrameworkType>{static_cast<FrameworkType>(3), tesu::FRAMEWORK_ORVANE}));
  EXPECT_EQ(factory_.FrameworkName(tesu::FRAMEWORK_ORVANE), "First");
  EXPECT_EQ(factory_.FrameworkName(static_cast<FrameworkType>(3)), "");
  factory_.Clear();
  EXPECT_EQ(factory_.FrameworkName(tesu::FRAMEWORK_ORVANE), "");
}

// A creator is foreign code: whatever it throws stays in the factory.
TEST_F(FactoryTest, ThrowingCreatorYieldsNoParser) {
  const auto other = static_cast<FrameworkType>(3);
  factory_.RegisterCreator(tesu::FRAMEWORK_ORVANE, []() -> std::shared_ptr<tesu::ModelParser> {
    throw std::runtime_error("out of memory");
  });
  factory_.RegisterCreator(other, []() -> std::shared_ptr<tesu::ModelParser> { throw 42; });
  EXPECT_TRUE(factory_.IsRegistered(other));
  EXPECT_FALSE(factory_.IsRegistered(static_cast<FrameworkType>(4)));
  EXPECT_EQ(factory_.CreateModelParser(tesu::FRAMEWORK_ORVANE), nullptr);
  EXPECT_EQ(factory_.CreateModelParser(other), nullptr);
}

}  // namespace
