#include "platform/filesystem_type.h"

#include <sys/stat.h>
#include <sys/vfs.h>

#include <string>

#include "platform/linux/mount_type.h"
#include "util/files.h"

namespace {

using keldo::ReadRegularFile;
using keldo::platform::FindMount;
using keldo::platform::FsType;
using keldo::platform::FsTypeOfFuseMount;
using keldo::platform::FsTypeOfMagic;
using keldo::platform::kFuseMagic;

// A mount that cannot be found is taken for local, as every unknown file system is: refusing it
// would leave its photos without thumbnails for good.
FsType FsTypeOfDevice(dev_t device) {
  const auto mountinfo = ReadRegularFile("/proc/self/mountinfo");
  const auto mount = mountinfo ? FindMount(*mountinfo, device) : std::nullopt;
  return mount ? FsTypeOfFuseMount(*mount) : FsType::kLocal;
}

}  // namespace

int KELDOGetFSType(const char* path, int /*flags*/) {
  struct statfs volume {};
  if (::statfs(path, &volume) != 0) return -1;
  // 32 bits are what all machines give, negative where the field is a signed one of that size.
  const auto magic = static_cast<std::uint32_t>(volume.f_type);
  if (magic != kFuseMagic) return static_cast<int>(FsTypeOfMagic(magic));
  struct stat status {};
  if (::stat(path, &status) != 0) return -1;
  return static_cast<int>(FsTypeOfDevice(status.st_dev));
}

int KELDOFSIsRemoteFS(int type) {
  return type == static_cast<int>(FsType::kRemote) ? 1 : 0;
}

int KELDOFSIsImageFS(int type) {
  return type == static_cast<int>(FsType::kImage) ? 1 : 0;
}
