// The registry of parser creators.
#include <memory>
#include <stdexcept>

#include <gtest/gtest.h>

#include "framework/model_parser.h"

namespace {

using tesu::FrameworkType;
using tesu::ModelParserFactory;

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

int TagOf(const std::shared_ptr<tesu::ModelParser>& parser) {
  auto tagged = std::dynamic_pointer_cast<TaggedParser>(parser);
  return tagged == nullptr ? -1 : tagged->tag;
}

class FactoryTest : public ::testing::Test {
 protected:
  void SetUp() override { factory_->Clear(); }
  void TearDown() override { factory_->Clear(); }
  ModelParserFactory* factory_ = ModelParserFactory::Instance();
};

TEST_F(FactoryTest, SecondCreatorForOneFrameworkIsRefusedAndFirstStays) {
  EXPECT_TRUE(factory_->RegisterCreator(tesu::FRAMEWORK_ORVANE, CreatorWithTag(1)));
  EXPECT_FALSE(factory_->RegisterCreator(tesu::FRAMEWORK_ORVANE, CreatorWithTag(2)));
  EXPECT_EQ(TagOf(factory_->CreateModelParser(tesu::FRAMEWORK_ORVANE)), 1);
  EXPECT_EQ(factory_->RegistrationCount(), 1u);
}

TEST_F(FactoryTest, InvalidRegistrationsAreRefusedAndTypesAreListedAscending) {
  EXPECT_FALSE(factory_->RegisterCreator(static_cast<FrameworkType>(-1), CreatorWithTag(1)));
  EXPECT_FALSE(factory_->RegisterCreator(tesu::FRAMEWORK_MAX, CreatorWithTag(1)));
  EXPECT_FALSE(factory_->RegisterCreator(tesu::FRAMEWORK_ORVANE, nullptr));
  factory_->RegisterCreator(static_cast<FrameworkType>(9), CreatorWithTag(9));
  factory_->RegisterCreator(static_cast<FrameworkType>(3), CreatorWithTag(3));
  EXPECT_EQ(
      factory_->RegisteredTypes(),
      (std::vector<FrameworkType>{static_cast<FrameworkType>(3), static_cast<FrameworkType>(9)}));
  EXPECT_EQ(factory_->CreateModelParser(tesu::FRAMEWORK_ORVANE), nullptr);
}

TEST_F(FactoryTest, ThrowingCreatorYieldsNoParser) {
  factory_->RegisterCreator(tesu::FRAMEWORK_ORVANE, []() -> std::shared_ptr<tesu::ModelParser> {
    throw std::runtime_error("out of memory");
  });
  EXPECT_EQ(factory_->CreateModelParser(tesu::FRAMEWORK_ORVANE), nullptr);
}

}  // namespace
