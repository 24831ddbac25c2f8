// The index that is built into this program, for machines where no other one runs.
//
// It is what the database holds. Where there is no database, or it cannot be opened, read or
// written, the defaults hold, silently: without an index the program makes all thumbnails of all
// photos, and that is no failure.
#pragma once

#include <string>
#include <string_view>

#include "index/index_database.h"

namespace keldo::index {

/// The mask of the kinds wanted for the files of `directory`, which may be spelt in any way.
///
/// The database is looked for at the first call and then kept open; where there was none, later
/// calls cost no system call at all. Changes by other processes are seen at the next call.
[[nodiscard]] int WantedKinds(std::string_view directory, int type);

/// Notes the resolutions of a photo and of a thumbnail made from it.
void NoteResolution(const Measured& photo, const Measured& thumbnail);

/// Makes this process use the database at `path` from now on instead of the system's. For tests.
void UseIndexAt(const std::string& path);

}  // namespace keldo::index
