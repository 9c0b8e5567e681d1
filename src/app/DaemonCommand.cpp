#include "app/CommandSupport.hpp"

namespace quorvane::Commands {

int daemon(CommandContext& context) {
    std::optional<DataFolderLock> writer = takeWriterLock(context);
    if (!writer) return 1;
    return 0;
}

}  // namespace quorvane::Commands
