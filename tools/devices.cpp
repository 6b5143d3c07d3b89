#include "commands.h"
#include "storages.h"
#include "table.h"

int PrintDevices(const Options&) {
    const auto or_dash = [](const std::string& text) { return text.empty() ? "-" : text; };
    Table table({{"KIND"}, {"ID"}, {"MOUNT PATH"}, {"SERIAL"}});
    for (const Storage& storage : ListStorages()) {
        table.AddRow(
            {storage.kind, or_dash(storage.id), or_dash(storage.mount), or_dash(storage.serial)});
    }
    table.Print();
    return 0;
}
