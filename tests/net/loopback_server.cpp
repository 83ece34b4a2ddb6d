#include "tests/net/loopback_server.h"

#include <arpa/inet.h>
#include <csignal>
#include <cstdlib>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace qx::net_test {
namespace {

// A client that hangs up must not end the test program.
[[maybe_unused]] const auto kFormerHandler = std::signal(SIGPIPE, SIG_IGN);

sockaddr_in Loopback(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  return address;
}

void SetTimeLimit(int socket) {
  const timeval limit{10, 0};
  setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

}  // namespace

// ---- one connection -----------------------------------------------------------------------------

Connection::~Connection() {
  SSL_free(tls_);
  SSL_CTX_free(context_);
  close(socket_);
}

bool Connection::StartTls(const Identity& identity) {
  context_ = SSL_CTX_new(TLS_server_method());
  SSL_CTX_use_certificate(context_, identity.certificate.get());
  SSL_CTX_use_PrivateKey(context_, identity.key.get());
  for (X509* above : identity.chain) SSL_CTX_add1_chain_cert(context_, above);
  tls_ = SSL_new(context_);
  SSL_set_fd(tls_, socket_);
  return WaitFor(socket_) && SSL_accept(tls_) == 1;
}

bool Connection::WaitFor(int socket) {
  pollfd waiting[] = {{socket, POLLIN, 0}, {stop_, POLLIN, 0}};
  return poll(waiting, 2, 20000) > 0 && waiting[1].revents == 0;
}

std::string Connection::ReadHeader() {
  std::string header;
  while (!header.ends_with("\r\n\r\n")) {
    const bool buffered = tls_ && SSL_pending(tls_) > 0;
    char byte;
    if (!buffered && !WaitFor(socket_)) return {};
    const auto count = tls_ ? SSL_read(tls_, &byte, 1) : recv(socket_, &byte, 1, 0);
    if (count != 1) return {};
    header += byte;
  }
  return header;
}

bool Connection::Write(std::string_view bytes) {
  while (!bytes.empty()) {
    const auto count = tls_ ? SSL_write(tls_, bytes.data(), static_cast<int>(bytes.size()))
                            : send(socket_, bytes.data(), bytes.size(), 0);
    if (count <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

void Connection::WaitForEnd() {
  char byte;
  while (WaitFor(socket_) && recv(socket_, &byte, 1, 0) == 1) {
  }
}

void Connection::RelayTo(int port) {
  const int other = socket(AF_INET, SOCK_STREAM, 0);
  const sockaddr_in address = Loopback(port);
  if (connect(other, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
    pollfd sides[] = {{socket_, POLLIN, 0}, {other, POLLIN, 0}, {stop_, POLLIN, 0}};
    for (bool open = true; open && poll(sides, 3, 20000) > 0 && sides[2].revents == 0;) {
      for (int from : {0, 1}) {
        if (sides[from].revents == 0) continue;
        char bytes[4096];
        const auto count = recv(sides[from].fd, bytes, sizeof bytes, 0);
        open = open && count > 0 &&
               send(sides[1 - from].fd, bytes, static_cast<std::size_t>(count), 0) == count;
      }
    }
  }
  close(other);
}

// ---- the server ---------------------------------------------------------------------------------

LoopbackServer::LoopbackServer(Serve serve) : serve_(std::move(serve)) {
  listener_ = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address = Loopback(0);
  socklen_t size = sizeof address;
  auto* const any = reinterpret_cast<sockaddr*>(&address);
  if (bind(listener_, any, size) != 0 || listen(listener_, 8) != 0 ||
      getsockname(listener_, any, &size) != 0 || pipe(stop_) != 0) {
    std::abort();  // without a loopback interface no case can be told
  }
  port_ = ntohs(address.sin_port);
  thread_ = std::thread([this] { Run(); });
}

LoopbackServer::~LoopbackServer() {
  close(stop_[1]);
  thread_.join();
  close(stop_[0]);
  close(listener_);
}

void LoopbackServer::Run() {
  for (;;) {
    pollfd waiting[] = {{listener_, POLLIN, 0}, {stop_[0], POLLIN, 0}};
    if (poll(waiting, 2, -1) <= 0 || waiting[1].revents != 0) break;
    const int socket = accept(listener_, nullptr, nullptr);
    if (socket < 0) break;
    SetTimeLimit(socket);
    ++connections_;
    served_.emplace_back([this, socket] {
      Connection connection(socket, stop_[0]);
      serve_(connection);
    });
  }
  for (std::thread& connection : served_) connection.join();
}

LoopbackServer::Serve LoopbackServer::Answering(
    std::function<std::string(const std::string&)> respond) {
  return [respond = std::move(respond)](Connection& connection) {
    for (std::string header; !(header = connection.ReadHeader()).empty();) {
      if (!connection.Write(respond(header))) return;
    }
  };
}

LoopbackServer::Serve LoopbackServer::AnsweringSecurely(const Identity& identity,
                                                        const std::string& response) {
  return [&identity, response](Connection& connection) {
    if (!connection.StartTls(identity)) return;
    Answering([&](const std::string&) { return response; })(connection);
  };
}

std::string Response(const std::string& status, const std::string& more_header) {
  return "HTTP/1.1 " + status + "\r\nContent-Length: 0\r\n" + more_header + "\r\n";
}

}  // namespace qx::net_test
