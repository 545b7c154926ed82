#pragma once
#include <string>

namespace zelk::agent {

// The guided tour: a script on the default world that walks through what the agent does.
const std::string& demoScript();

}  // namespace zelk::agent
