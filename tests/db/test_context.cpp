#include "db/test_context.h"

#include <algorithm>
#include <utility>

namespace quorbex::db::test {
namespace {

// A function-local list, so that registrations from other files' static initialisers find it built.
std::vector<ContextFactory>& Registry() {
  static std::vector<ContextFactory> contexts;
  return contexts;
}

}  // namespace

ContextRegistration::ContextRegistration(std::string name, std::function<std::shared_ptr<TestContext>()> make) {
  Registry().push_back({std::move(name), std::move(make)});
}

std::vector<ContextFactory> AllContexts() {
  std::vector<ContextFactory> contexts = Registry();
  std::sort(contexts.begin(), contexts.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
  return contexts;
}

std::vector<ContextFactory> WritableContexts() {
  std::vector<ContextFactory> writable;
  for (const auto& factory : AllContexts()) {
    if (factory.make()->Writable()) writable.push_back(factory);
  }
  return writable;
}

ContextFactory ContextNamed(const std::string& name) {
  for (const auto& factory : Registry()) {
    if (factory.name == name) return factory;
  }
  ADD_FAILURE() << "no test context named " << name;
  return {};
}

}  // namespace quorbex::db::test
