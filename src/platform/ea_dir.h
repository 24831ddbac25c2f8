// Metadata directories: `@eaDir` beside the photos, in it one directory per photo. And the last
// error of a platform call that keeps one.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

/// Writes the metadata directory of a source file to `buffer` (`size` bytes): "/v/a.jpg" has
/// "/v/@eaDir/a.jpg", "a.jpg" has "@eaDir/a.jpg". Returns 0 on success; non-zero when the path is
/// empty, ends in '/' or the result does not fit, and KLIBCErrGet and its companions then say why.
int KELDOEADirPath(const char* source_path, char* buffer, std::size_t size);

/// Non-zero when `name` is a metadata directory or another directory of the platform's own that
/// users do not see ("@eaDir", "@tmp", ...).
int KELDOEAIsHiddenDir(const char* name);

/// Which of the two spellings exists in `directory`, tested in the given order: the existing file's
/// name, or an empty string when neither exists.
[[nodiscard]] std::string GetFileNameEAFileExist(const std::string& directory,
                                                 const std::string& underscore_name,
                                                 const std::string& colon_name);

/// Removes both spellings from `directory`; succeeds for a missing one. True when neither is left.
bool RemoveEAFile(const std::string& directory, const std::string& underscore_name,
                  const std::string& colon_name);

/// True when at least one of `names` exists in `directory`.
[[nodiscard]] bool IsEAFileExist(const std::string& directory,
                                 const std::vector<std::string>& names);

/// Error code of the last failed platform call of this process, 0 when there was none.
[[nodiscard]] int KLIBCErrGet();
/// Source file that reported that error; never null.
[[nodiscard]] const char* KLIBCErrorGetFile();
/// Line in that source file.
[[nodiscard]] int KLIBCErrorGetLine();
