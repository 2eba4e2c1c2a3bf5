// Loading the plug-in the way a host does: this executable does not link it, it opens it.
#include <dlfcn.h>

#include <gtest/gtest.h>

#include "framework/model_parser.h"
#include "model_builder.h"

namespace {

using namespace testkit;

TEST(ParserPluginLoad, LoadingRegistersOneCreatorWithItsConvertersAndUnloads) {
  tesu::ModelParserFactory& factory = *tesu::ModelParserFactory::Instance();
  ASSERT_TRUE(factory.RegisteredTypes().empty());
  void* plugin = dlopen(ORVANE_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(plugin, nullptr) << dlerror();
  EXPECT_EQ(factory.RegisteredTypes(), std::vector<tesu::FrameworkType>{tesu::FRAMEWORK_ORVANE});
  EXPECT_EQ(factory.RegistrationCount(), 1u);
  std::shared_ptr<tesu::ModelParser> parser = factory.CreateModelParser(tesu::FRAMEWORK_ORVANE);
  ASSERT_NE(parser, nullptr);

  // A Relu gets the activation mode that only its converter sets.
  ModelBuilder model;
  model.Data("in");
  model.Unary("relu", "Relu", "in");
  const std::string bytes = model.Bytes();
  std::vector<tov::BaseBuffer> buffers{
      tov::BaseBuffer(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size())};
  tesu::ParserOptions options;
  tov::Graph graph;
  ASSERT_EQ(parser->ParseFromMemory(options, buffers, graph), 0u);
  const auto relu = tov::GraphUtils::GetComputeGraph(graph)->FindNode("relu");
  EXPECT_NE(AttrsText(*relu->GetOpDesc()).find("mode=1"), std::string::npos);
  // The parser's code lives in the plug-in, so everything it made goes before the plug-in.
  graph = tov::Graph();
  parser.reset();
  factory.Clear();
  EXPECT_EQ(dlclose(plugin), 0);
}

}  // namespace
