#pragma once

#include "core/CoreExport.h"

#include <string>

// Kept as an interface for settings that may one day be stored encoded. Both operations leave their
// output untouched: nothing is transformed today.
class CORE_EXPORT Cryptor
{
public:
    void Encode(std::string in, std::string& out);
    void Decode(std::string in, std::string& out);
};
