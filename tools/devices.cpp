#include "commands.h"
#include "report.h"
#include "storages.h"

int PrintDevices(const Options&) {
    const auto or_dash = [](const std::string& text) { return text.empty() ? "-" : text; };
    Table table = {{"KIND", "ID", "MOUNT PATH", "SERIAL"}};
    for (const Storage& storage : ListStorages()) {
        table.push_back(
            {storage.kind, or_dash(storage.id), or_dash(storage.mount), or_dash(storage.serial)});
    }
    PrintTable(table);
    return 0;
}
