// A walk over whole libraries.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "ctl/console.h"
#include "ctl/library/photo_scan.h"

namespace keldo::ctl {

/// Scans the directories of all trees, each once even where trees overlap, and gives those with
/// photos to `visit`, in order. What cannot be read, and a root whose file system gets no
/// thumbnails, is told on the console. True when all could be read.
bool ScanLibrary(const std::vector<std::string>& roots, PhotoScanner& scanner, Console& console,
                 const std::function<void(DirectoryState)>& visit);

}  // namespace keldo::ctl
