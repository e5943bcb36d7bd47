#include "Renderer.h"

#include "JsonRenderer.h"
#include "TerminalRenderer.h"

std::unique_ptr<Renderer> MakeRenderer(bool json, QIODevice* out, QIODevice* err, bool errIsTerminal)
{
    if (json)
        return std::make_unique<JsonRenderer>(out);
    return std::make_unique<TerminalRenderer>(out, err, errIsTerminal);
}
