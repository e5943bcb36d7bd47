#pragma once

// The points between stages where a killed run must leave the install folder whole. Each one is
// logged; a test may have the host killed there (the environment variable
// "CORE_UPDATE_KILL_AT" names the boundary), the way a power cut or kill -9 would stop it.
namespace Boundary {

void Pass(const char* name);

} // namespace Boundary
