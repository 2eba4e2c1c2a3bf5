#include "framework/output_clash.h"

#include <sys/stat.h>

#include <filesystem>
#include <optional>
#include <system_error>

#include "framework/output_file.h"

namespace tesu {
namespace {

// What a path leads to: its name with every link, "." and ".." resolved, and the file's
// identity when it exists.
struct FileKey {
  std::string name;
  std::optional<std::pair<dev_t, ino_t>> identity;
  bool writtenInPlace = false;
};

FileKey KeyOf(const std::string& path) {
  FileKey key;
  OutputTarget target;
  std::string error;
  if (!ResolveOutputTarget(path, target, error)) target.path = path;
  key.writtenInPlace = target.descriptor >= 0;
  struct stat info {};
  if (!key.writtenInPlace && stat(target.path.c_str(), &info) == 0) {
    key.identity = std::make_pair(info.st_dev, info.st_ino);
    key.writtenInPlace = !S_ISREG(info.st_mode) && !S_ISDIR(info.st_mode) && !S_ISBLK(info.st_mode);
  }
  std::error_code ec;
  const std::filesystem::path absolute = std::filesystem::absolute(target.path, ec);
  const std::filesystem::path canonical = std::filesystem::weakly_canonical(absolute, ec);
  key.name = (ec ? absolute.lexically_normal() : canonical).string();
  return key;
}

bool SameFile(const FileKey& a, const FileKey& b) {
  if (a.writtenInPlace || b.writtenInPlace) return false;
  return a.name == b.name || (a.identity && a.identity == b.identity);
}

}  // namespace

std::string FindOutputClash(const FlaggedPath& model, const std::vector<FlaggedPath>& outputs) {
  const FileKey modelKey = KeyOf(model.path);
  std::vector<FileKey> keys;
  for (const FlaggedPath& output : outputs) {
    const FileKey key = KeyOf(output.path);
    if (SameFile(key, modelKey)) {
      return output.flag + " " + output.path + " would overwrite the model (" + model.flag + " " +
             model.path + "); the model is only read";
    }
    for (size_t i = 0; i < keys.size(); ++i) {
      if (!SameFile(key, keys[i])) continue;
      return outputs[i].flag + " " + outputs[i].path + " and " + output.flag + " " + output.path +
             " name the same file; each output needs a file of its own";
    }
    keys.push_back(key);
  }
  return std::string();
}

}  // namespace tesu
