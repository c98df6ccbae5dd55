#include <map>
#include <mutex>

#include "Fenn.h"

namespace Fenn::Platform {

namespace {

struct Handlers {
  std::mutex mutex;  // plugins ask from their static initialisers, on whichever thread loads them
  std::map<std::string, std::shared_ptr<DebugHandler>, std::less<>> byName;
};
Handlers& handlers() {
  static Handlers all;
  return all;
}

}  // namespace

std::shared_ptr<DebugHandler> getDebugHandler(std::string_view name, unsigned levels) {
  Handlers& all = handlers();
  const std::lock_guard lock(all.mutex);
  const auto found = all.byName.find(name);
  if (found != all.byName.end()) return found->second;
  auto handler = std::make_shared<DebugHandler>(std::string(name));
  handler->levelsIs(levels);
  all.byName.emplace(name, handler);
  return handler;
}

std::vector<std::shared_ptr<DebugHandler>> debugHandlers() {
  Handlers& all = handlers();
  const std::lock_guard lock(all.mutex);
  std::vector<std::shared_ptr<DebugHandler>> result;
  for (const auto& [name, handler] : all.byName) result.push_back(handler);
  return result;
}

}  // namespace Fenn::Platform
