#pragma once

#include <cassert>
#include <utility>
#include <variant>

#include "Support/Failure.h"

namespace vantelor {

// The value of an operation or the Failure that stopped it. Errors are values here: they cross
// threads inside QFuture<Result<T>> and never as exceptions.
template <typename T>
class [[nodiscard]] Result {
public:
    Result(T value) : m_state(std::in_place_index<0>, std::move(value)) {}
    Result(Failure failure) : m_state(std::in_place_index<1>, std::move(failure)) {}
    Result(BrowserError e) : Result(Failure(std::move(e))) {}
    Result(WorkflowError e) : Result(Failure(std::move(e))) {}
    Result(SystemError e) : Result(Failure(std::move(e))) {}
    Result(Cancelled e) : Result(Failure(e)) {}

    bool ok() const { return m_state.index() == 0; }
    explicit operator bool() const { return ok(); }

    const T& value() const& { assert(ok()); return std::get<0>(m_state); }
    T& value() & { assert(ok()); return std::get<0>(m_state); }
    T&& value() && { assert(ok()); return std::get<0>(std::move(m_state)); }
    const T& operator*() const& { return value(); }
    T& operator*() & { return value(); }
    const T* operator->() const { return &value(); }
    T* operator->() { return &value(); }

    const Failure& failure() const { assert(!ok()); return std::get<1>(m_state); }
    QString message() const { return ok() ? QString() : describe(failure()); }

private:
    std::variant<T, Failure> m_state;
};

// For operations that return nothing but may fail.
struct Done {
    friend bool operator==(const Done&, const Done&) = default;
};
using Status = Result<Done>;

} // namespace vantelor
