// Owning pointers for the C library's streams and directories.
#pragma once

#include <dirent.h>

#include <cstdio>
#include <memory>

namespace keldo {

struct CloseDirectory {
  void operator()(DIR* directory) const { ::closedir(directory); }
};
struct CloseFile {
  void operator()(FILE* file) const { static_cast<void>(std::fclose(file)); }
};

/// An open directory stream, closed when it goes.
using UniqueDir = std::unique_ptr<DIR, CloseDirectory>;
/// An open file stream, closed when it goes. Where the success of the last write matters, release
/// it and look at fclose's result.
using UniqueFile = std::unique_ptr<FILE, CloseFile>;

}  // namespace keldo
