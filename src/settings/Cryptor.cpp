#include "settings/Cryptor.h"

void Cryptor::Encode(std::string, std::string&) { }

void Cryptor::Decode(std::string, std::string&) { }
