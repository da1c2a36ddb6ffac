// Reports errors in the tool's name.
#include "session.h"

namespace uci_tool {

int report(const session &tool)
{
    if (!tool.quiet && tool.ctx->err != UCI_OK)
        uci_perror(tool.ctx.get(), tool.program.c_str());
    return exit_failed;
}

int report(const session &tool, int code)
{
    tool.ctx->err = code;
    return report(tool);
}

} // namespace uci_tool
