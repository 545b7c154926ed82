// The shared YAML loader: any bytes end in a value or an error, within the loader's bounds.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "support/Yaml.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view text(reinterpret_cast<const char*>(data), size);
    ferrow::YamlError error;
    if (auto value = ferrow::parseYaml(text, &error)) {
        // What the loader gives back can be written out and read again.
        (void)ferrow::parseYaml(ferrow::emitYaml(*value));
    }
    return 0;
}
