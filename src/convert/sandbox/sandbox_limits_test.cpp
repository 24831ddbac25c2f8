#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <csignal>

#include "convert/sandbox/sandbox.h"
#include "convert/sandbox/sandbox_test_support.h"
#include "support/temp_dir.h"
#include "util/handles.h"

namespace {

using keldo::UniqueFd;
using keldo::convert::ApplyLimits;
using keldo::convert::SandboxParts;
using keldo::convert::WorkerLimits;
using keldo::testing::ErrorOf;
using keldo::testing::InChild;
using keldo::testing::kNotStopped;
using keldo::testing::TempDir;

TEST(ApplyLimits, CpuTimeRunsOut) {
  EXPECT_EQ(InChild([]() -> int {
              WorkerLimits limits;
              limits.cpu_seconds = 1;
              ApplyLimits(limits, {});
              for (;;)
                __asm__ volatile("");
            }),
            -SIGXCPU);
}

TEST(ApplyLimits, MemoryRunsOut) {
  EXPECT_EQ(InChild([] {
              WorkerLimits limits;
              limits.address_space = rlim_t{64} << 20;
              SandboxParts parts;
              parts.address_space = true;
              ApplyLimits(limits, parts);
              void* much = mmap(nullptr, std::size_t{65} << 20, PROT_READ | PROT_WRITE,
                                MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
              return much == MAP_FAILED ? errno : 0;
            }),
            ENOMEM);
}

TEST(ApplyLimits, DescriptorsAndFileSizesRunOut) {
  const TempDir dir;
  const UniqueFd out(open((dir.path() + "/output").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  EXPECT_EQ(InChild([&] {
              SandboxParts parts;
              parts.descriptors = true;
              ApplyLimits({}, parts);
              return ErrorOf(dup(out.get()));
            }),
            EMFILE);
  EXPECT_EQ(InChild([&] {
              std::signal(SIGXFSZ, SIG_IGN);
              WorkerLimits limits;
              limits.file_bytes = 10;
              ApplyLimits(limits, {});
              if (write(out.get(), "1234567890", 10) != 10) return kNotStopped;
              return ErrorOf(write(out.get(), "1", 1));
            }),
            EFBIG);
}

TEST(ApplyLimits, LowerLimitsStay) {
  EXPECT_EQ(InChild([] {
              const rlimit low{7, 8};
              setrlimit(RLIMIT_CPU, &low);
              ApplyLimits({}, {});
              rlimit now{};
              getrlimit(RLIMIT_CPU, &now);
              return static_cast<int>(now.rlim_cur * 10 + now.rlim_max);
            }),
            78);
}

}  // namespace
