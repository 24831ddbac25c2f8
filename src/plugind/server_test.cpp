#include "plugind/server.h"

#include <gtest/gtest.h>
#include <sys/eventfd.h>

#include <memory>
#include <string>
#include <vector>

#include "plugind/daemon_test_support.h"
#include "support/temp_dir.h"

namespace keldo::plugind {
namespace {

TEST(Server, AnswersClientsThatConnectedBeforeTheStop) {
  const testing::TempDir dir;
  const ListenSocket::OpenResult opened = ListenSocket::Open(dir.path() + "/sock");
  ASSERT_TRUE(opened.socket);
  Server server(*opened.socket,
                [](std::string_view text) {
                  return Answer{.reply = "re: " + std::string(text), .problem = {}};
                },
                {.max_clients = 200});
  // As many as the backlog holds, which is more than one round accepts.
  std::vector<std::unique_ptr<Client>> clients;
  for (int i = 0; i < 129; ++i) {
    clients.push_back(std::make_unique<Client>(dir.path() + "/sock"));
    clients.back()->Send(std::to_string(i) + "\nhalf");
  }
  const UniqueFd stop(::eventfd(1, EFD_CLOEXEC));
  server.Run(stop.get());
  EXPECT_THROW(Client(dir.path() + "/sock"), std::runtime_error);
  for (std::size_t i = 0; i < clients.size(); ++i) {
    ASSERT_EQ(clients[i]->Line(), "re: " + std::to_string(i));
    ASSERT_EQ(clients[i]->Line(), "(closed)");
  }
}

}  // namespace
}  // namespace keldo::plugind
