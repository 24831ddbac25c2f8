// The last error of a platform call that keeps one.
#pragma once

/// Error code of the last failed platform call of this process, 0 when there was none.
[[nodiscard]] int KLIBCErrGet();
/// Source file that reported that error; never null.
[[nodiscard]] const char* KLIBCErrorGetFile();
/// Line in that source file.
[[nodiscard]] int KLIBCErrorGetLine();
