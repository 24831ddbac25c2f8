// Copying dcraw's output to real files.
#include <sys/resource.h>
#include <sys/stat.h>
#include <syslog.h>

#include <csignal>
#include <optional>
#include <stdexcept>

#include "fakes/core_test.h"
#include "render/raw_decode.h"

namespace keldo::testing {
namespace {

using Texts = std::vector<std::string>;

// While it lives, a file cannot grow beyond this size: the write that crosses it is cut short.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
    if (getrlimit(RLIMIT_FSIZE, &before_) != 0) throw std::runtime_error("getrlimit failed");
    rlimit limit = before_;
    limit.rlim_cur = bytes;
    if (setrlimit(RLIMIT_FSIZE, &limit) != 0) throw std::runtime_error("setrlimit failed");
  }
  ~FileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &before_);
    static_cast<void>(std::signal(SIGXFSZ, handler_));
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  rlimit before_{};
  void (*handler_)(int);
};

class DcrawTest : public CoreTest {
 protected:
  static void SetOutput(const std::string& bytes) {
    fake().on_popen = [bytes](const PopenCall&) { return bytes; };
  }

  [[nodiscard]] bool Run(const std::string& out) const {
    return RunDcrawToFile("/v/photo.x3f", out, "-w");
  }

  const std::string out_ = In("out.ppm");
};

TEST_F(DcrawTest, TheOutputIsCopiedByteForByte) {
  std::string bytes(3 * 4096 + 7, '\0');
  for (std::size_t i = 0; i < bytes.size(); ++i)
    bytes[i] = static_cast<char>(i * 31 % 256);
  for (const std::size_t size :
       {std::size_t{1}, std::size_t{4096}, std::size_t{4097}, bytes.size()}) {
    SetOutput(bytes.substr(0, size));
    EXPECT_TRUE(Run(out_));
    EXPECT_EQ(ReadFile(out_), bytes.substr(0, size)) << size;
  }
  EXPECT_EQ(fake().popens.at(0).mode, "r");
  EXPECT_EQ(fake().popens.at(0).argv, (Texts{"/usr/bin/dcraw", "-w", "-c", "/v/photo.x3f"}));
  ExpectNoLog();
}

TEST_F(DcrawTest, TheOldContentOfTheFileIsReplaced) {
  WriteFile(out_, "a longer text of an earlier run");
  SetOutput("short");
  EXPECT_TRUE(Run(out_));
  EXPECT_EQ(ReadFile(out_), "short");
}

TEST_F(DcrawTest, TheExitStatusOfDcrawIsIgnored) {
  SetOutput("bytes");
  fake().popen_status = 256;
  EXPECT_TRUE(Run(out_));
}

TEST_F(DcrawTest, NoOutputIsAFailure) {
  SetOutput("");
  EXPECT_FALSE(Run(out_));
  EXPECT_EQ(ReadFile(out_), "");
  ExpectNoLog();
}

TEST_F(DcrawTest, AProgramThatCannotBeStartedIsLogged) {
  fake().FailCall("KLIBCPopen");
  EXPECT_FALSE(Run(out_));
  ExpectOneLog(LOG_ERR, "keldothumb:751 KLIBCPopen [/usr/bin/dcraw -w -c] failed");
  EXPECT_EQ(fake().CallsOf({"AppLogError"}), (Texts{"AppLogError(3)"}));
  EXPECT_FALSE(Exists(out_));
}

TEST_F(DcrawTest, AFileThatCannotBeOpenedIsLogged) {
  SetOutput("bytes");
  EXPECT_FALSE(Run(In("none/out.ppm")));
  ExpectOneLog(LOG_ERR, "keldothumb:757 fopen failed, path=" + In("none/out.ppm") + ", errno=2");
  EXPECT_EQ(fake().CallsOf({"KLIBCPclose"}).size(), 1u);
}

TEST_F(DcrawTest, AnOutputThatCannotBeReadIsLoggedWithThePhoto) {
  SetOutput("bytes");
  fake().FailCall("WaitForEvents");
  EXPECT_FALSE(Run(out_));
  ExpectOneLog(LOG_ERR, "keldothumb:766 read failed, path=/v/photo.x3f");
}

TEST_F(DcrawTest, AFullDiskIsLoggedWithTheFile) {
  SetOutput("bytes");
  EXPECT_FALSE(Run("/dev/full"));
  ExpectOneLog(LOG_ERR, "keldothumb:775 write failed, path=/dev/full, No space left on device");
}

TEST_F(DcrawTest, AWriteThatIsCutShortIsLoggedAndStaysWhereItEnded) {
  SetOutput(std::string(9000, 'x'));
  std::optional<FileSizeLimit> limit;
  fake().on_wait = [&] { limit.emplace(4096 + 100); };
  EXPECT_FALSE(Run(out_));
  limit.reset();
  ExpectOneLog(LOG_ERR, "keldothumb:780 write size wrong, read_count=4096, write_count=100");
  EXPECT_EQ(ReadFile(out_).size(), 4196u);
}

}  // namespace
}  // namespace keldo::testing
