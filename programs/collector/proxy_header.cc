#include "proxy_header.h"

#include <algorithm>
#include <array>
#include <asio/ip/address.hpp>
#include <charconv>
#include <cstdint>
#include <string>
#include <system_error>
#include <vector>

namespace TAVU::collector {
namespace {

using asio::ip::tcp;

constexpr std::string_view kLineBegin = "PROXY ";
constexpr std::string_view kSignature("\r\n\r\n\0\r\nQUIT\n", 12);
constexpr std::size_t kFixedPart = 16;  // of version 2: signature, command, family, length

// In the byte after the signature: version 2 and the command.
constexpr unsigned char kLocal = 0x20;
constexpr unsigned char kProxy = 0x21;
// In the next: the family, and stream.
constexpr unsigned char kTcp4 = 0x11;
constexpr unsigned char kTcp6 = 0x21;

std::size_t Number16(std::string_view bytes) {
  return std::size_t{static_cast<unsigned char>(bytes[0])} << 8 |
         static_cast<unsigned char>(bytes[1]);
}

template <typename Address>
tcp::endpoint EndpointFrom(std::string_view block) {
  typename Address::bytes_type address;
  std::copy_n(block.begin(), address.size(), address.begin());
  // Source and destination address, then the two ports.
  return {Address(address), static_cast<std::uint16_t>(Number16(block.substr(2 * address.size())))};
}

ProxyHeader ParseBinary(std::string_view bytes) {
  const auto command = static_cast<unsigned char>(bytes[12]);
  const auto family = static_cast<unsigned char>(bytes[13]);
  const std::string_view block = bytes.substr(kFixedPart);
  if (command == kLocal) return {true, {}};
  if (command != kProxy) return {};
  if (family == kTcp4) {
    if (block.size() < 12) return {};
    return {true, EndpointFrom<asio::ip::address_v4>(block)};
  }
  if (family == kTcp6) {
    if (block.size() < 36) return {};
    return {true, EndpointFrom<asio::ip::address_v6>(block)};
  }
  return {true, {}};
}

// PROXY TCP4 SOURCE DESTINATION SOURCE_PORT DESTINATION_PORT
ProxyHeader ParseLine(std::string_view line) {
  std::vector<std::string_view> words;
  for (;;) {
    const std::size_t space = std::min(line.find(' '), line.size());
    words.push_back(line.substr(0, space));
    if (space == line.size()) break;
    line.remove_prefix(space + 1);
  }
  if (words.size() >= 2 && words[1] == "UNKNOWN") return {true, {}};
  if (words.size() != 6 || (words[1] != "TCP4" && words[1] != "TCP6")) return {};
  std::error_code error;
  const asio::ip::address source = asio::ip::make_address(std::string(words[2]), error);
  if (error || source.is_v6() != (words[1] == "TCP6")) return {};
  std::uint16_t port = 0;
  const char* const end = words[4].data() + words[4].size();
  const auto parsed = std::from_chars(words[4].data(), end, port);
  if (parsed.ec != std::errc() || parsed.ptr != end) return {};
  return {true, tcp::endpoint(source, port)};
}

}  // namespace

std::optional<std::size_t> MissingOfProxyHeader(std::string_view bytes) {
  if (bytes.starts_with(kLineBegin)) {
    if (bytes.ends_with("\r\n")) return 0;
    if (bytes.size() >= kLongestProxyLine) return std::nullopt;
    return 1;  // what follows the line must not be read with it
  }
  if (!bytes.starts_with(kSignature)) return std::nullopt;
  if (bytes.size() < kFixedPart) return kFixedPart - bytes.size();
  const std::size_t size = kFixedPart + Number16(bytes.substr(14));
  if (size > kLongestProxyHeader) return std::nullopt;
  return size - std::min(size, bytes.size());
}

ProxyHeader ParseProxyHeader(std::string_view bytes) {
  if (bytes.starts_with(kLineBegin)) return ParseLine(bytes.substr(0, bytes.size() - 2));
  return ParseBinary(bytes);
}

}  // namespace TAVU::collector
