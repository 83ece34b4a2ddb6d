#pragma once
// A server on the loopback interface that does what a test wants, well or badly.

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "tests/net/certificates.h"

namespace qx::net_test {

/// One accepted connection, plain or through TLS.
class Connection {
 public:
  Connection(int socket, int stop) : socket_(socket), stop_(stop) {}
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  bool StartTls(const Identity& identity);
  /// The header of the next request, ended by its empty line; empty when none comes.
  std::string ReadHeader();
  /// False when the other side is gone.
  bool Write(std::string_view bytes);
  /// Until the other side closes or the server ends.
  void WaitForEnd();
  /// Passes bytes on both ways between this and a port here, until one side ends.
  void RelayTo(int port);

 private:
  bool WaitFor(int socket);

  int socket_;
  int stop_;
  SSL_CTX* context_ = nullptr;
  SSL* tls_ = nullptr;
};

/// Serves each connection in a thread of its own until its end.
class LoopbackServer {
 public:
  /// What happens to a connection; it is closed afterwards.
  using Serve = std::function<void(Connection&)>;

  explicit LoopbackServer(Serve serve);
  /// Answers each request of a connection by `respond(header of the request)`.
  static Serve Answering(std::function<std::string(const std::string&)> respond);
  /// The same through TLS, as long as the client accepts the certificate.
  static Serve AnsweringSecurely(const Identity& identity, const std::string& response);

  ~LoopbackServer();
  LoopbackServer(const LoopbackServer&) = delete;
  LoopbackServer& operator=(const LoopbackServer&) = delete;

  int Port() const { return port_; }
  std::string Host() const { return "127.0.0.1:" + std::to_string(port_); }
  int Connections() const { return connections_; }

 private:
  void Run();

  Serve serve_;
  int listener_ = -1;
  int stop_[2] = {-1, -1};
  int port_ = 0;
  std::atomic<int> connections_{0};
  std::vector<std::thread> served_;
  std::thread thread_;
};

/// "HTTP/1.1 <status>" with an empty body.
std::string Response(const std::string& status, const std::string& more_header = "");

}  // namespace qx::net_test
