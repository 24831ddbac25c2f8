#include "process/startup.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <system_error>

#include "process/process_test_support.h"
#include "util/handles.h"

namespace {

using keldo::process::EnsureStandardDescriptors;
using keldo::testing::InCopy;

bool LeadsToDevNull(int fd) {
  std::error_code error;
  return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd), error) == "/dev/null";
}

void LeadToDevZero() {
  const keldo::UniqueFd zero(open("/dev/zero", O_RDWR | O_CLOEXEC));
  for (int fd = 0; fd < 3; ++fd)
    dup2(zero.get(), fd);
}

TEST(EnsureStandardDescriptors, OpensThoseThatAreClosed) {
  for (unsigned closed = 1; closed < 8; ++closed) {
    EXPECT_EQ(InCopy([closed] {
                LeadToDevZero();
                for (int fd = 0; fd < 3; ++fd)
                  if ((closed >> fd & 1) != 0) close(fd);
                EnsureStandardDescriptors();
                for (int fd = 0; fd < 3; ++fd)
                  if (LeadsToDevNull(fd) != ((closed >> fd & 1) != 0)) return 1;
                return 0;
              }),
              0)
        << closed;
  }
}

TEST(EnsureStandardDescriptors, TheyCanBeReadAndWritten) {
  EXPECT_EQ(InCopy([] {
              for (int fd = 0; fd < 3; ++fd)
                close(fd);
              EnsureStandardDescriptors();
              char byte = 0;
              return read(0, &byte, 1) == 0 && write(1, "x", 1) == 1 && write(2, "x", 1) == 1 ? 0
                                                                                              : 1;
            }),
            0);
}

TEST(EnsureStandardDescriptors, OpensNothingElse) {
  EXPECT_EQ(InCopy([] {
              LeadToDevZero();
              const auto before = keldo::testing::CountDescriptors();
              EnsureStandardDescriptors();
              return keldo::testing::CountDescriptors() == before ? 0 : 1;
            }),
            0);
}

}  // namespace
