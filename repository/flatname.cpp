#include "repository/flatname.h"

std::string flat_result_name(const std::string &operation) { return flat_result_mark + operation; }

std::string flat_length_name(const std::string &base) { return base + flat_length_suffix; }

std::string flat_discriminator_name(const std::string &base) {
    return base + flat_discriminator_suffix;
}

void append_flat_index(std::string &name, int32_t index, bool stateful) {
    name += flat_index_open;
    if (stateful) name += std::to_string(index);
    name += flat_index_close;
}
