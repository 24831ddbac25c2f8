// What the tests of requests to the daemon share.
#pragma once

#include <gtest/gtest.h>
#include <json/reader.h>
#include <json/value.h>
#include <json/writer.h>
#include <syslog.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "fakes/core_test.h"

namespace keldo::testing {

inline Json::Value FromText(const std::string& text) {
  Json::CharReaderBuilder builder;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Json::Value value;
  std::string errors;
  if (!reader->parse(text.data(), text.data() + text.size(), &value, &errors)) {
    throw std::runtime_error(errors);
  }
  return value;
}

/// Replies of the daemon, and what it was asked.
class DaemonRequestsTest : public CoreTest {
 protected:
  static void Reply(const std::string& text) {
    fake().on_packet = [value = FromText(text)](const Json::Value&) { return value; };
  }

  // One packet went out, to the daemon, and it was this.
  static void ExpectSent(const std::string& text) {
    ASSERT_EQ(fake().packets.size(), 1u);
    const PacketRequest& packet = fake().packets.front();
    EXPECT_EQ(packet.value, FromText(text)) << packet.value;
    EXPECT_EQ(packet.socket_path, "/tmp/keldoindexplugind_sock");
    EXPECT_EQ(packet.flags, -1);
    EXPECT_EQ(packet.timeout_seconds, 1800);
  }

  static void ExpectFailure(int line) {
    ExpectOneLog(LOG_ERR, "keldomk_ipc:" + std::to_string(line) + " fail");
  }
};

/// Replies that mean that a request failed.
inline const std::vector<std::string>& FailedReplies() {
  static const std::vector<std::string> replies = {
      R"({"success": false, "version": 3, "result": true, "media": {"path": "x"}})",
      R"({"version": 3, "result": true, "media": {"path": "x"}})",
      R"({"success": null})",
      R"({"success": "true", "version": 3, "result": true})",
      R"({"success": {}})",
      R"([{"success": true}])",
      R"("success")",
      "true",
      "1",
      "null"};
  return replies;
}

}  // namespace keldo::testing
