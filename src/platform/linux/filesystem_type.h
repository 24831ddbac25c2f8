// The kinds of file systems, as pure decisions on what the kernel reports.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace keldo::platform {

/// Type codes that KELDOGetFSType returns.
enum class FsType : int {
  kLocal = 1,
  kRemote = 2,  ///< A network share: the machine that has the disk indexes it.
  kImage = 3,   ///< A mounted disk image, read-only by nature.
  /// Looks local, but encrypts names and makes them longer, so that a metadata directory with a
  /// photo's name may be too long for it. Callers know the number.
  kEncryptingOverlay = 12,
};

/// A mount as /proc/self/mountinfo shows it.
struct Mount {
  std::string type;    ///< "ext4", "fuse.sshfs"
  std::string source;  ///< "/dev/sda1", "anna@host:/photos"
};

/// The magic number that statfs gives for every file system in user space, local or not.
inline constexpr std::uint32_t kFuseMagic = 0x65735546;

/// The type of a file system by the magic number of statfs; unknown ones are local.
[[nodiscard]] FsType FsTypeOfMagic(std::uint32_t magic);

/// The type of a file system in user space by its mount; unknown ones are local unless their source
/// names another machine.
[[nodiscard]] FsType FsTypeOfFuseMount(const Mount& mount);

/// The mount of `device` in the text of a mountinfo file; nothing when there is none.
[[nodiscard]] std::optional<Mount> FindMount(std::string_view mountinfo, dev_t device);

}  // namespace keldo::platform
