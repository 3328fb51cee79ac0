#pragma once

#include <utility>

namespace secapp {

/// Calls a function at the end of the scope, however it is left.
template <typename Function>
class AtScopeEnd {
public:
    explicit AtScopeEnd(Function function) : function_(std::move(function)) {}
    ~AtScopeEnd() { function_(); }
    AtScopeEnd(const AtScopeEnd&) = delete;
    AtScopeEnd& operator=(const AtScopeEnd&) = delete;

private:
    Function function_;
};

} // namespace secapp
