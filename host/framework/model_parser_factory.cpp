#include <exception>
#include <mutex>

#include "framework/model_parser.h"
#include "log/log.h"

namespace tesu {
namespace {

constexpr const char* kModule = "TESU_FMK";

// Plug-ins register from their load-time initialisers, possibly on another thread than the one
// that asks for parsers, so every access to the table is serialised.
std::mutex& FactoryMutex() {
  static std::mutex mutex;
  return mutex;
}

bool IsValidType(FrameworkType type) {
  return type >= 0 && type < FRAMEWORK_MAX;
}

}  // namespace

ModelParserFactory* ModelParserFactory::Instance() {
  static ModelParserFactory factory;
  return &factory;
}

bool ModelParserFactory::RegisterCreator(FrameworkType type, ModelParserCreator creator) {
  return RegisterCreator(type, std::move(creator), std::string());
}

bool ModelParserFactory::RegisterCreator(FrameworkType type, ModelParserCreator creator,
                                         const std::string& name, ModelInput input) {
  if (!IsValidType(type) || !creator) {
    AI_Log_Print(AI_LOG_ERROR, kModule, "refused parser creator for framework %d: %s",
                 static_cast<int>(type), creator ? "type out of range" : "empty creator");
    return false;
  }
  std::lock_guard<std::mutex> lock(FactoryMutex());
  if (!creators_.emplace(type, std::move(creator)).second) {
    AI_Log_Print(AI_LOG_WARNING, kModule,
                 "a parser for framework %d is already registered; the new one is ignored",
                 static_cast<int>(type));
    return false;
  }
  declared_[type] = Declared{name, input};
  ++registrations_;
  return true;
}

std::shared_ptr<ModelParser> ModelParserFactory::CreateModelParser(FrameworkType type) const {
  ModelParserCreator creator;
  {
    std::lock_guard<std::mutex> lock(FactoryMutex());
    auto found = creators_.find(type);
    if (found == creators_.end()) return nullptr;
    creator = found->second;
  }
  // A plug-in's creator is foreign code; an exception must not cross into the caller.
  try {
    return creator();
  } catch (const std::exception& e) {
    AI_Log_Print(AI_LOG_ERROR, kModule, "parser creator for framework %d failed: %s",
                 static_cast<int>(type), e.what());
  } catch (...) {
    AI_Log_Print(AI_LOG_ERROR, kModule, "parser creator for framework %d failed",
                 static_cast<int>(type));
  }
  return nullptr;
}

bool ModelParserFactory::IsRegistered(FrameworkType type) const {
  std::lock_guard<std::mutex> lock(FactoryMutex());
  return creators_.count(type) != 0;
}

std::vector<FrameworkType> ModelParserFactory::RegisteredTypes() const {
  std::lock_guard<std::mutex> lock(FactoryMutex());
  std::vector<FrameworkType> types;
  types.reserve(creators_.size());
  for (const auto& entry : creators_) types.push_back(entry.first);
  return types;
}

std::string ModelParserFactory::FrameworkName(FrameworkType type) const {
  std::lock_guard<std::mutex> lock(FactoryMutex());
  auto found = declared_.find(type);
  return found == declared_.end() ? std::string() : found->second.name;
}

ModelInput ModelParserFactory::InputOf(FrameworkType type) const {
  std::lock_guard<std::mutex> lock(FactoryMutex());
  auto found = declared_.find(type);
  return found == declared_.end() ? ModelInput::kOwnFormat : found->second.input;
}

size_t ModelParserFactory::RegistrationCount() const {
  std::lock_guard<std::mutex> lock(FactoryMutex());
  return registrations_;
}

void ModelParserFactory::Clear() {
  std::lock_guard<std::mutex> lock(FactoryMutex());
  creators_.clear();
  declared_.clear();
  registrations_ = 0;
}

}  // namespace tesu
