#pragma once
// The facade's collaborators, for the project's own tools and tests: a session made the way the
// facade makes them, and the context it hands down. Not part of the installed headers.

#include <memory>

#include "halvora/halvora.h"
#include "rest/service_context.h"

namespace halvora {

struct FacadeAccess {
    static ServiceContextPtr context();
    // A session of this library's service, asking the delegate about windows; not yet current.
    static std::shared_ptr<HLVSession> makeSession();
    // What the session screens ask of the facade (its current session, create, get).
    static std::shared_ptr<HLVSessionSource> sessionSource();
    // Presents a flow modally, as the banner's tap does; false when it cannot be shown.
    static bool presentFlow(const std::shared_ptr<HLVViewController>& flow);
};

}  // namespace halvora
