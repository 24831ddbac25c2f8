// keldothumbctl with the machine's own tools: the thumbnails do not depend on how the work is
// shared.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "e2e/fixtures.h"
#include "e2e/real_sandbox.h"
#include "util/path.h"

namespace keldo::testing {
namespace {

using ::testing::IsEmpty;

const std::vector<std::string> kFolders{"one", "two words", "-3\n%[1]*"};

void AddPhotos(const Sandbox& box) {
  for (std::size_t i = 0; i < kFolders.size(); ++i) {
    for (int photo = 0; photo < 2; ++photo) {
      const int size = 320 + 100 * static_cast<int>(i) + 50 * photo;
      box.AddPhoto(kFolders[i] + "/" + std::to_string(photo) + ".jpg",
                   EncodeJpeg(FourCorners(size, 300)));
    }
  }
}

// All thumbnails by path.
std::map<std::string, std::string> Thumbnails(const Sandbox& box) {
  std::map<std::string, std::string> content;
  for (const std::string& folder : kFolders) {
    const std::string metadata = JoinPath(kPhotoDir, folder) + "/@eaDir";
    for (const std::string& photo : box.List(metadata)) {
      for (const std::string& name : box.List(metadata + "/" + photo)) {
        const std::string path = metadata + "/" + photo + "/" + name;
        content[path] = box.Read(path);
      }
    }
  }
  return content;
}

// The thumbnails that a shell command makes with the default profile file.
std::map<std::string, std::string> ThumbnailsBy(const std::string& command) {
  RealSandbox box;
  AddPhotos(box);
  const RunResult run = box.Run({"/bin/sh", "-c", "PATH=/program:$PATH; " + command});
  EXPECT_EQ(run.exit_status, 0) << run.standard_error;
  EXPECT_THAT(run.survivors, IsEmpty());
  return Thumbnails(box);
}

TEST(CtlRealToolsTest, ResultDoesNotDependOnTheNumberOfJobs) {
  const auto alone = ThumbnailsBy("keldothumbctl make -j 1 --profile /conf/profile /volume1");
  EXPECT_EQ(alone.size(), 6U * 6U);
  EXPECT_TRUE(ThumbnailsBy("keldothumbctl make -j 3 --profile /conf/profile /volume1") == alone);
}

TEST(CtlRealToolsTest, GnuParallelSharesTheDirectories) {
  const auto shared = ThumbnailsBy(
      "for pass in 1 2; do"
      " keldothumbctl dirs -0 --todo --profile /conf/profile /volume1 |"
      " parallel -0 -j 2 keldothumb /conf/profile {} || exit;"
      " done; test -z \"$(keldothumbctl dirs -0 --todo --profile /conf/profile /volume1)\"");
  EXPECT_TRUE(shared == ThumbnailsBy("keldothumbctl make --profile /conf/profile /volume1"));
}

TEST(CtlRealToolsTest, ArrayJobPicksItsDirectoryByNumber) {
  RealSandbox box;
  AddPhotos(box);
  // What a batch system runs for each number in the array.
  const RunResult run = box.Run(
      {"/bin/bash", "-c",
       "PATH=/program:$PATH\n"
       "keldothumbctl dirs -0 --profile /conf/profile /volume1 >/tmp/dirs || exit\n"
       "count=$(tr -dc '\\0' </tmp/dirs | wc -c)\n"
       "for ((SLURM_ARRAY_TASK_ID = 0; SLURM_ARRAY_TASK_ID < count; ++SLURM_ARRAY_TASK_ID)); do\n"
       "  mapfile -d '' -t dirs </tmp/dirs\n"
       "  keldothumbctl make -q -j 1 --profile /conf/profile \"${dirs[SLURM_ARRAY_TASK_ID]}\" ||"
       " exit\n"
       "done"});
  EXPECT_EQ(run.exit_status, 0) << run.standard_error;
  EXPECT_EQ(run.standard_output, "");
  EXPECT_EQ(Thumbnails(box).size(), 6U * 6U);
}

}  // namespace
}  // namespace keldo::testing
