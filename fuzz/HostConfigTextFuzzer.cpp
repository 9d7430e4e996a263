// Any bytes as a host's configuration file: reading, adding the entry and removing it never crash
// or hang. Text that reads as a configuration stays one after each edit, holds the entry after
// adding it, and, when its servers object had other members but no entry, gets its very bytes back
// when the entry is removed again.

#include <cstdint>
#include <cstdlib>
#include <string>

#include "BrimbleCore/MCP/HostConfigText.h"

namespace {

using brimble::HostConfigText;

void require(bool condition) {
  if (!condition) {
    std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  try {
    HostConfigText config(text);
    const HostConfigText::Document before = config.value();
    const auto servers = before.find("servers");
    // The blanks inside an empty object are not kept: only a servers object with members gets its
    // very bytes back.
    const bool hadServers = servers != before.end() && servers->is_object() && !servers->empty();
    const bool hadEntry = hadServers && servers->contains("brimble");
    const std::string original = config.text();
    const HostConfigText::Document entry = {{"command", "/x/mcp-shim.sh"}, {"args", {1, "a"}}};
    config.setMember("servers", "brimble", entry);
    require(config.value().at("servers").at("brimble") == entry);
    // Re-reading the edited text gives the same configuration.
    require(HostConfigText(config.text()).value() == config.value());
    require(config.removeMember("servers", "brimble"));
    require(!config.value().at("servers").contains("brimble"));
    if (hadServers && !hadEntry) {
      require(config.text() == original);
    }
  } catch (const brimble::HostConfigError&) {
    // Not a configuration (or "servers" is not an object): refused, nothing to check.
  }
  return 0;
}
