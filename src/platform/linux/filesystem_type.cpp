#include "platform/linux/filesystem_type.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>

#include <algorithm>
#include <array>

#include "platform/file.h"
#include "util/files.h"
#include "util/text.h"

namespace keldo::platform {
namespace {

struct Magic {
  std::uint32_t number;
  FsType type;
};

constexpr auto kMagics = std::to_array<Magic>({
    {0x00006969, FsType::kRemote},             // NFS
    {0x0000517B, FsType::kRemote},             // SMB
    {0xFF534D42, FsType::kRemote},             // CIFS
    {0xFE534D42, FsType::kRemote},             // SMB 2
    {0x0000564C, FsType::kRemote},             // NCP
    {0x5346414F, FsType::kRemote},             // OpenAFS
    {0x6B414653, FsType::kRemote},             // AFS of the kernel
    {0x01021997, FsType::kRemote},             // 9P
    {0x00C36400, FsType::kRemote},             // Ceph
    {0x73757245, FsType::kRemote},             // Coda
    {0x0BD00BD0, FsType::kRemote},             // Lustre
    {0x20030528, FsType::kRemote},             // OrangeFS
    {0x00009660, FsType::kImage},              // ISO 9660
    {0x15013346, FsType::kImage},              // UDF
    {0x73717368, FsType::kImage},              // squashfs
    {0x28CD3D45, FsType::kImage},              // cramfs
    {0x453DCD28, FsType::kImage},              // cramfs, other byte order
    {0xE0F5E1E2, FsType::kImage},              // EROFS
    {0x00007275, FsType::kImage},              // romfs
    {0x0000F15F, FsType::kEncryptingOverlay},  // eCryptfs
});

// Programs behind "fuse.NAME". Those that lay one local directory over another (mergerfs, bindfs,
// unionfs) or encrypt one, and drivers of local disks, are local whatever their source looks like:
// mergerfs names its branches as "/disk1:/disk2".
constexpr auto kLocalPrograms = std::to_array<std::string_view>(
    {"bindfs", "cryfs", "encfs", "exfat", "ext2", "gocryptfs", "lxcfs", "mergerfs", "mhddfs",
     "ntfs-3g", "overlayfs", "portal", "securefs", "unionfs", "unionfs-fuse", "zfs-fuse"});
constexpr auto kRemotePrograms = std::to_array<std::string_view>({"afuse",
                                                                  "blobfuse",
                                                                  "blobfuse2",
                                                                  "ceph",
                                                                  "ceph-fuse",
                                                                  "cephfs",
                                                                  "curlftpfs",
                                                                  "davfs",
                                                                  "davfs2",
                                                                  "gcsfuse",
                                                                  "geesefs",
                                                                  "glusterfs",
                                                                  "google-drive-ocamlfuse",
                                                                  "goofys",
                                                                  "gvfsd-fuse",
                                                                  "ipfs",
                                                                  "jmtpfs",
                                                                  "JuiceFS",
                                                                  "juicefs",
                                                                  "moosefs",
                                                                  "mount-s3",
                                                                  "mountpoint-s3",
                                                                  "onedriver",
                                                                  "rclone",
                                                                  "s3backer",
                                                                  "s3fs",
                                                                  "s3ql",
                                                                  "seaweedfs",
                                                                  "simple-mtpfs",
                                                                  "smbnetfs",
                                                                  "sshfs",
                                                                  "wdfs"});
constexpr auto kImagePrograms = std::to_array<std::string_view>(
    {"archivemount", "fuseiso", "fuse-archive", "fuse-zip", "mount-zip", "ratarmount", "snapfuse",
     "squashfuse", "squashfuse_ll"});

template <typename Table>
bool Lists(const Table& table, std::string_view name) {
  return std::ranges::find(table, name) != table.end();
}

// "https://host/photos", "//host/photos" and "anna@host:/photos", but not "/dev/sdb1".
bool NamesAnotherMachine(std::string_view source) {
  if (source.starts_with("//") || source.find("://") != std::string_view::npos) return true;
  return !source.starts_with("/") && source.find(":/") != std::string_view::npos;
}

std::string_view TakeField(std::string_view& line) {
  const std::string_view field = line.substr(0, line.find(' '));
  line.remove_prefix(std::min(field.size() + 1, line.size()));
  return field;
}

// "36 35 98:0 /root /mount/point rw,noatime master:1 - ext3 /dev/root rw": the number of fields
// before the dash varies. Blanks inside a field are written as \040.
std::optional<Mount> MountIn(std::string_view line, std::string_view device) {
  constexpr int kFieldsBeforeDevice = 2;
  for (int field = 0; field < kFieldsBeforeDevice; ++field)
    TakeField(line);
  if (TakeField(line) != device) return std::nullopt;
  constexpr std::string_view kDash = " - ";
  const std::size_t dash = line.find(kDash);
  if (dash == std::string_view::npos) return std::nullopt;
  line.remove_prefix(dash + kDash.size());
  Mount mount;
  mount.type = TakeField(line);
  mount.source = TakeField(line);
  return mount;
}

}  // namespace

FsType FsTypeOfMagic(std::uint32_t magic) {
  const auto found = std::ranges::find(kMagics, magic, &Magic::number);
  return found == kMagics.end() ? FsType::kLocal : found->type;
}

FsType FsTypeOfFuseMount(const Mount& mount) {
  constexpr std::string_view kPrefix = "fuse.";
  std::string_view program = mount.type;
  if (program.starts_with(kPrefix)) program.remove_prefix(kPrefix.size());
  if (program == "fuseblk" || Lists(kLocalPrograms, program)) return FsType::kLocal;
  if (Lists(kRemotePrograms, program)) return FsType::kRemote;
  if (Lists(kImagePrograms, program)) return FsType::kImage;
  return NamesAnotherMachine(mount.source) ? FsType::kRemote : FsType::kLocal;
}

std::optional<Mount> FindMount(std::string_view mountinfo, dev_t device) {
  const std::string wanted =
      std::to_string(gnu_dev_major(device)) + ":" + std::to_string(gnu_dev_minor(device));
  while (!mountinfo.empty()) {
    if (auto mount = MountIn(TakeLine(mountinfo), wanted)) return mount;
  }
  return std::nullopt;
}

}  // namespace keldo::platform

namespace {

using keldo::ReadRegularFile;
using keldo::platform::FindMount;
using keldo::platform::FsType;
using keldo::platform::FsTypeOfFuseMount;
using keldo::platform::FsTypeOfMagic;
using keldo::platform::kFuseMagic;

// A mount that is not in the table counts as local, like every unknown file system: refusing it
// would leave its photos without thumbnails.
FsType FsTypeOfDevice(dev_t device) {
  const auto mountinfo = ReadRegularFile("/proc/self/mountinfo");
  const auto mount = mountinfo ? FindMount(*mountinfo, device) : std::nullopt;
  return mount ? FsTypeOfFuseMount(*mount) : FsType::kLocal;
}

}  // namespace

int KELDOGetFSType(const char* path, int /*flags*/) {
  struct statfs volume {};
  if (::statfs(path, &volume) != 0) return -1;
  // All machines give 32 bits; where the field is signed and no wider, they may read as negative.
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
