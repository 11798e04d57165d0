#include <winsock2.h>

// After winsock2.h.
#include <psapi.h>

#include <string>
#include <vector>

#include "measures.h"
#include "pairs.h"
#include "sockets.h"

namespace TAVU::bench {
namespace {

constexpr std::size_t kUpload = std::size_t{64} << 20;
constexpr wchar_t kMessage[] = L"connection to the lobby was lost after 20 seconds";

void SetServer(TAVU_HANDLE instance, std::uint16_t port) {
  Require(TAVU_SetReportServerA(instance, "127.0.0.1", port), "TAVU_SetReportServerA");
}

void SendLogTcp(TAVU_HANDLE instance) {
  Require(TAVU_SendLog_TCPW(instance, TAVU_LEVEL_ERROR, L"net", nullptr, kMessage), "a TCP log");
}
void SendLogUdp(TAVU_HANDLE instance) {
  Require(TAVU_SendLog_UDPW(instance, TAVU_LEVEL_ERROR, L"net", nullptr, kMessage), "a UDP log");
}

// The bytes of a log record as the library sends them, which are the same over TCP.
std::string CaptureRequest(TAVU_HANDLE instance) {
  const BoundSocket server(SOCK_DGRAM);
  SetServer(instance, server.port());
  SendLogUdp(instance);
  char datagram[2048];
  const int size = ::recv(server.get(), datagram, sizeof datagram, 0);
  Require(size > 0, "receiving a record");
  return {datagram, static_cast<std::size_t>(size)};
}

void Connect(SOCKET socket, std::uint16_t port) {
  const sockaddr_in server = Loopback(port);
  Require(::connect(socket, reinterpret_cast<const sockaddr*>(&server), sizeof server) == 0,
          "connect");
}

void ReceiveReply(SOCKET socket) {
  char reply[2048];
  Require(::recv(socket, reply, sizeof reply, 0) > 0, "receiving a reply");
}

void SendAll(SOCKET socket, const char* data, std::size_t size) {
  while (size > 0) {
    const int sent = ::send(socket, data, static_cast<int>(size), 0);
    Require(sent > 0, "send");
    data += sent;
    size -= static_cast<std::size_t>(sent);
  }
}

// The least that does it.
void BareTcp(std::uint16_t port, const std::string& request) {
  const SOCKET socket = ::socket(AF_INET, SOCK_STREAM, 0);
  Connect(socket, port);
  SendAll(socket, request.data(), request.size());
  ReceiveReply(socket);
  ::closesocket(socket);
}

// The same with what the library promises besides: a time-out to connect and one to receive, a
// socket that no child inherits, an end by reset.
void BareTcpWithTimeouts(std::uint16_t port, const std::string& request) {
  const SOCKET socket = ::socket(AF_INET, SOCK_STREAM, 0);
  ::SetHandleInformation(reinterpret_cast<HANDLE>(socket), HANDLE_FLAG_INHERIT, 0);
  u_long non_blocking = 1;
  ::ioctlsocket(socket, static_cast<long>(FIONBIO), &non_blocking);
  const sockaddr_in server = Loopback(port);
  timeval timeout = {3, 0};
  if (::connect(socket, reinterpret_cast<const sockaddr*>(&server), sizeof server) != 0) {
    Require(::WSAGetLastError() == WSAEWOULDBLOCK, "connect");
    fd_set writable = {1, {socket}};
    fd_set failed = {1, {socket}};
    Require(::select(0, nullptr, &writable, &failed, &timeout) == 1, "connecting in time");
    Require(writable.fd_count == 1, "connect");
  }
  non_blocking = 0;
  ::ioctlsocket(socket, static_cast<long>(FIONBIO), &non_blocking);
  const linger reset = {1, 0};
  ::setsockopt(socket, SOL_SOCKET, SO_LINGER, reinterpret_cast<const char*>(&reset), sizeof reset);
  SendAll(socket, request.data(), request.size());
  fd_set readable = {1, {socket}};
  Require(::select(0, &readable, nullptr, nullptr, &timeout) == 1, "a reply in time");
  ReceiveReply(socket);
  ::closesocket(socket);
}

void BareUdp(std::uint16_t port, const std::string& request) {
  const SOCKET socket = ::socket(AF_INET, SOCK_DGRAM, 0);
  Connect(socket, port);
  SendAll(socket, request.data(), request.size());
  ::closesocket(socket);
}

// The block and the bytes that make the server answer.
void BareUpload(std::uint16_t port, const std::vector<char>& block) {
  const SOCKET socket = ::socket(AF_INET, SOCK_STREAM, 0);
  Connect(socket, port);
  SendAll(socket, block.data(), block.size());
  SendAll(socket, "z\0\0", 3);
  ReceiveReply(socket);
  ::closesocket(socket);
}

// The same in the wire's packets: a length in front of each 2,048 bytes, all from where they lie.
void BarePackets(std::uint16_t port, std::vector<char>& block) {
  constexpr std::size_t kPacket = 2048;
  constexpr std::size_t kPackets = 512;  // of one send
  char length[] = {kPacket >> 8, 0};
  const SOCKET socket = ::socket(AF_INET, SOCK_STREAM, 0);
  Connect(socket, port);
  for (std::size_t sent = 0; sent < block.size(); sent += kPackets * kPacket) {
    WSABUF pieces[kPackets * 2];
    for (std::size_t i = 0; i < kPackets; ++i) {
      pieces[2 * i] = {sizeof length, length};
      pieces[2 * i + 1] = {kPacket, block.data() + sent + i * kPacket};
    }
    DWORD count = 0;
    const bool done = ::WSASend(socket, pieces, kPackets * 2, &count, 0, nullptr, nullptr) == 0;
    Require(done && count == kPackets * (kPacket + sizeof length), "WSASend");
  }
  SendAll(socket, "z\0\0", 3);
  ReceiveReply(socket);
  ::closesocket(socket);
}

void Upload(TAVU_HANDLE instance, const std::vector<char>& block) {
  Require(TAVU_SendFileW(instance, block.size(), block.data(), L"bench", L"64 MiB"), "an upload");
}

double PeakMebibytes() {
  PROCESS_MEMORY_COUNTERS counters = {};
  Require(::K32GetProcessMemoryInfo(::GetCurrentProcess(), &counters, sizeof counters),
          "GetProcessMemoryInfo");
  return static_cast<double>(counters.PeakWorkingSetSize) / (1 << 20);
}

}  // namespace

void MeasureUploadMemory(TAVU_HANDLE instance, std::uint16_t tcp_port) {
  const std::vector<char> block(kUpload, 'x');
  SetServer(instance, tcp_port);
  SendLogTcp(instance);  // what the first connection of a process costs is not the upload's
  const double before = PeakMebibytes();
  Upload(instance, block);
  PrintRow("upload/memory", PeakMebibytes() - before, "MiB");
}

void MeasureExchanges(TAVU_HANDLE instance, std::uint16_t tcp_port, std::uint16_t udp_port) {
  const std::string request = CaptureRequest(instance);
  SetServer(instance, tcp_port);
  const std::vector<double> tcp = MeasureInTurns(
      1001, {[&] { return SecondsOf([&] { SendLogTcp(instance); }); },
             [&] { return SecondsOf([&] { BareTcp(tcp_port, request); }); },
             [&] { return SecondsOf([&] { BareTcpWithTimeouts(tcp_port, request); }); }});
  PrintRow("log/tcp", tcp[0] * 1e6, tcp[1] * 1e6, "us");
  PrintRow("log/tcp_timeouts", tcp[0] * 1e6, tcp[2] * 1e6, "us");

  SetServer(instance, udp_port);
  ComparePairs(
      "log/udp", 2001, 1e6, "us", [&] { return SecondsOf([&] { SendLogUdp(instance); }); },
      [&] { return SecondsOf([&] { BareUdp(udp_port, request); }); });

  SetServer(instance, tcp_port);
  std::vector<char> block(kUpload, 'x');
  const std::vector<double> upload =
      MeasureInTurns(31, {[&] { return SecondsOf([&] { Upload(instance, block); }); },
                          [&] { return SecondsOf([&] { BareUpload(tcp_port, block); }); },
                          [&] { return SecondsOf([&] { BarePackets(tcp_port, block); }); }});
  PrintRow("upload", upload[0] * 1e3, upload[1] * 1e3, "ms");
  PrintRow("upload/packets", upload[0] * 1e3, upload[2] * 1e3, "ms");
}

}  // namespace TAVU::bench
