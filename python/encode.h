// Calling an encoder of the resolver with Python keyword arguments: each
// parameter taken by its name from the keywords and converted to its C++
// type, every keyword used exactly once.
#ifndef KZRESOLVER_PYTHON_ENCODE_H
#define KZRESOLVER_PYTHON_ENCODE_H

#include "convert.h"

#include <array>
#include <tuple>
#include <utility>

namespace kz::py {

/// The keyword `name` of `kw`, or TypeError naming the message and field.
inline pyb::handle keyword(const pyb::dict& kw, const char* name, const char* message)
{
    if (!kw.contains(name))
        throw pyb::type_error(std::string(message) + ": missing field '" + name + "'");
    return kw[name];
}

template <size_t N>
void checkNoOthers(const pyb::dict& kw, const std::array<const char*, N>& names,
                   const char* message)
{
    for (auto kv : kw) {
        const std::string key = pyb::str(kv.first);
        bool known = false;
        for (const char* n : names) known |= key == n;
        if (!known) {
            std::string all;
            for (const char* n : names) all += (all.empty() ? "" : ", ") + std::string(n);
            throw pyb::type_error(std::string(message) + ": no field '" + key +
                                  "' (its fields: " + (all.empty() ? "none" : all) + ")");
        }
    }
}

template <class... A, size_t... I>
void callWith(KZProtocolResolver& r, void (KZProtocolResolver::*fn)(A...),
              const std::array<const char*, sizeof...(A)>& names, const pyb::dict& kw,
              const char* message, std::index_sequence<I...>)
{
    checkNoOthers(kw, names, message);
    // Brace-initialised: converted in the order of the call.
    std::tuple<std::decay_t<A>...> args{
        fromPy<std::decay_t<A>>(keyword(kw, names[I], message), names[I])...};
    (r.*fn)(std::get<I>(args)...);
}

/// Calls `fn` on `r` with the keywords of `kw` as its parameters `names`.
template <class... A>
void call(KZProtocolResolver& r, void (KZProtocolResolver::*fn)(A...),
          const std::array<const char*, sizeof...(A)>& names, const pyb::dict& kw,
          const char* message)
{
    callWith(r, fn, names, kw, message, std::index_sequence_for<A...>{});
}

} // namespace kz::py

#endif // KZRESOLVER_PYTHON_ENCODE_H
