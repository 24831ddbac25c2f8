#include "convert/cli/version.h"

#include "convert/readers/readers.h"

namespace keldo::convert {

std::string VersionText() {
  return "convert-thumb " KELDO_VERSION "\nFormats:" + InstalledFormats() + "\n";
}

}  // namespace keldo::convert
