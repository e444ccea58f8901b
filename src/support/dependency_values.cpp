#include "velquist/support/dependency_values.h"

#include <atomic>

namespace velquist::support {
namespace {

std::atomic<DependencyContext> activeContext{DependencyContext::live};
thread_local DependencyValues currentValues;

}  // namespace

DependencyContext dependencyContext() { return activeContext.load(); }

void setDependencyContext(DependencyContext context) { activeContext.store(context); }

DependencyValues DependencyValues::current() { return currentValues; }

DependencyScope::DependencyScope(DependencyValues values) : previous_(std::exchange(currentValues, std::move(values))) {}

DependencyScope::~DependencyScope() { currentValues = std::move(previous_); }

}  // namespace velquist::support
