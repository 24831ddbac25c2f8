// Scanning whole libraries.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "ctl/console.h"
#include "ctl/library/photo_scan.h"

namespace keldo::ctl {

/// Scans the directories of all trees, each once even if trees overlap, and calls `visit` for those
/// with photos, in order. Reports on the console what cannot be read, and roots whose file system
/// gets no thumbnails. True when everything could be read.
bool ScanLibrary(const std::vector<std::string>& roots, PhotoScanner& scanner, Console& console,
                 const std::function<void(DirectoryState)>& visit);

}  // namespace keldo::ctl
