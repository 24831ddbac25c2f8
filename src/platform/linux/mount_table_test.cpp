#include <gtest/gtest.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include "platform/linux/filesystem_type.h"
#include "util/files.h"

namespace keldo::platform {
namespace {

TEST(FsTypeOfMagic, NetworkFileSystemsAreRemote) {
  for (const std::uint32_t magic :
       {std::uint32_t{NFS_SUPER_MAGIC}, std::uint32_t{SMB_SUPER_MAGIC},
        std::uint32_t{CIFS_SUPER_MAGIC}, std::uint32_t{SMB2_SUPER_MAGIC},
        std::uint32_t{AFS_SUPER_MAGIC}, std::uint32_t{AFS_FS_MAGIC}, std::uint32_t{V9FS_MAGIC},
        std::uint32_t{CEPH_SUPER_MAGIC}, std::uint32_t{CODA_SUPER_MAGIC}}) {
    EXPECT_EQ(FsTypeOfMagic(magic), FsType::kRemote) << std::hex << magic;
  }
}

TEST(FsTypeOfMagic, ReadOnlyImagesAreImages) {
  for (const std::uint32_t magic :
       {std::uint32_t{ISOFS_SUPER_MAGIC}, std::uint32_t{UDF_SUPER_MAGIC},
        std::uint32_t{SQUASHFS_MAGIC}, std::uint32_t{CRAMFS_MAGIC},
        std::uint32_t{EROFS_SUPER_MAGIC_V1}}) {
    EXPECT_EQ(FsTypeOfMagic(magic), FsType::kImage) << std::hex << magic;
  }
}

TEST(FsTypeOfMagic, DisksAndUnknownOnesAreLocal) {
  for (const std::uint32_t magic : {std::uint32_t{EXT4_SUPER_MAGIC}, std::uint32_t{XFS_SUPER_MAGIC},
                                    std::uint32_t{BTRFS_SUPER_MAGIC}, std::uint32_t{TMPFS_MAGIC},
                                    std::uint32_t{OVERLAYFS_SUPER_MAGIC},
                                    std::uint32_t{MSDOS_SUPER_MAGIC}, std::uint32_t{0x12345678}}) {
    EXPECT_EQ(FsTypeOfMagic(magic), FsType::kLocal) << std::hex << magic;
  }
}

TEST(FsTypeOfMagic, TheEncryptingOverlayHasTheCode12) {
  EXPECT_EQ(FsTypeOfMagic(ECRYPTFS_SUPER_MAGIC), FsType::kEncryptingOverlay);
  EXPECT_EQ(static_cast<int>(FsType::kEncryptingOverlay), 12);
}

TEST(FsTypeOfFuseMount, DependsOnTheProgram) {
  struct Case {
    const char* type;
    FsType expected;
  };
  for (const auto& [type, expected] :
       std::initializer_list<Case>{{"fuse.sshfs", FsType::kRemote},
                                   {"fuse.rclone", FsType::kRemote},
                                   {"fuse.s3fs", FsType::kRemote},
                                   {"fuse.glusterfs", FsType::kRemote},
                                   {"fuse.davfs", FsType::kRemote},
                                   {"fuse.cephfs", FsType::kRemote},
                                   {"fuse.ceph-fuse", FsType::kRemote},
                                   {"fuse.curlftpfs", FsType::kRemote},
                                   {"fuse.smbnetfs", FsType::kRemote},
                                   {"fuse.goofys", FsType::kRemote},
                                   {"fuse.gcsfuse", FsType::kRemote},
                                   {"fuse.fuseiso", FsType::kImage},
                                   {"fuse.squashfuse", FsType::kImage},
                                   {"fuse.archivemount", FsType::kImage},
                                   {"fuseblk", FsType::kLocal},
                                   {"fuse.ntfs-3g", FsType::kLocal},
                                   {"fuse.exfat", FsType::kLocal},
                                   {"fuse.mergerfs", FsType::kLocal},
                                   {"fuse.bindfs", FsType::kLocal},
                                   {"fuse.gocryptfs", FsType::kLocal},
                                   {"fuse.encfs", FsType::kLocal},
                                   {"fuse.unionfs", FsType::kLocal},
                                   {"fuse", FsType::kLocal},
                                   {"virtiofs", FsType::kLocal},
                                   {"fuse.new-one", FsType::kLocal}}) {
    EXPECT_EQ(FsTypeOfFuseMount({.type = type, .source = "x"}), expected) << type;
  }
}

TEST(FsTypeOfFuseMount, AnUnknownProgramDependsOnItsSource) {
  for (const char* source :
       {"https://host/photos", "//host/photos", "anna@host:/photos", "host:/photos"}) {
    EXPECT_EQ(FsTypeOfFuseMount({.type = "fuse", .source = source}), FsType::kRemote) << source;
    EXPECT_EQ(FsTypeOfFuseMount({.type = "fuse.new", .source = source}), FsType::kRemote) << source;
  }
  for (const char* source : {"/dev/sdb1", "/disk1:/disk2", "", "fuse"}) {
    EXPECT_EQ(FsTypeOfFuseMount({.type = "fuse", .source = source}), FsType::kLocal) << source;
  }
  EXPECT_EQ(FsTypeOfFuseMount({.type = "fuse.mergerfs", .source = "a:/b"}), FsType::kLocal);
}

constexpr const char* kMountinfo =
    "22 1 8:1 / / rw,relatime shared:1 - ext4 /dev/sda1 rw\n"
    "35 22 0:51 / /mnt/a\\040-\\040b rw,nosuid - fuse.sshfs anna@host:/my\\040photos rw,user_id=0\n"
    "36 22 0:5 /sub /mnt/c rw shared:7 master:2 - tmpfs tmpfs rw\n"
    "37 22 0:52 / /broken rw\n"
    "\n"
    "38 22 8:17 / /mnt/disk rw - fuseblk /dev/sdb1 rw";

TEST(FindMount, GoesByTheDeviceNumber) {
  const auto share = FindMount(kMountinfo, makedev(0, 51));
  ASSERT_TRUE(share);
  EXPECT_EQ(share->type, "fuse.sshfs");
  EXPECT_EQ(share->source, "anna@host:/my\\040photos");

  const auto memory = FindMount(kMountinfo, makedev(0, 5));
  ASSERT_TRUE(memory);
  EXPECT_EQ(memory->type, "tmpfs");

  const auto disk = FindMount(kMountinfo, makedev(8, 17));
  ASSERT_TRUE(disk);
  EXPECT_EQ(disk->type, "fuseblk");
  EXPECT_EQ(disk->source, "/dev/sdb1");
}

TEST(FindMount, FindsNothingForOtherDevicesAndBrokenLines) {
  EXPECT_FALSE(FindMount(kMountinfo, makedev(0, 50)));
  EXPECT_FALSE(FindMount(kMountinfo, makedev(0, 52)));
  EXPECT_FALSE(FindMount("", makedev(8, 1)));
}

TEST(FindMount, ReadsWhatTheKernelWrites) {
  struct stat status {};
  ASSERT_EQ(stat("/proc", &status), 0);
  const auto text = ReadRegularFile("/proc/self/mountinfo");
  ASSERT_TRUE(text);
  const auto mount = FindMount(*text, status.st_dev);
  ASSERT_TRUE(mount);
  EXPECT_EQ(mount->type, "proc");
}

}  // namespace
}  // namespace keldo::platform
