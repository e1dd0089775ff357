// What the contract suite needs to know about the host that it runs on.
#pragma once

#include <string>

namespace contract {

/// A name under which no file exists yet when the test starts.
std::string freshName(const std::string& name);
/// Called before and after every test.
void begin();
void end();

}  // namespace contract
