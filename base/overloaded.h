#pragma once
// Builds one visitor for std::visit out of several lambdas, one per alternative.

namespace halvora {

template <typename... Handlers>
struct Overloaded : Handlers... {
    using Handlers::operator()...;
};
template <typename... Handlers>
Overloaded(Handlers...) -> Overloaded<Handlers...>;

}  // namespace halvora
