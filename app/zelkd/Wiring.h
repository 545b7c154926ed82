#pragma once
#include "input/RoutingServices.h"

namespace zelk::agent {

// The router's services as the subsystems built so far offer them.
RoutingServices makeRoutingServices();

}  // namespace zelk::agent
