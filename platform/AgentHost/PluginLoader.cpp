#include "platform/AgentHost/PluginLoader.h"

#include <dlfcn.h>
#include <elf.h>

#include <algorithm>
#include <fstream>
#include <system_error>

#include "platform/Blink/Trace.h"

BLINK_TRACE_HANDLE("PluginLoader");

namespace AgentHost {
namespace {

std::string lastLoadError() {
    const char* text = ::dlerror();
    return text == nullptr ? "unknown error" : text;
}

/// Bytes that a library of this header has at least; 0 when it is none. A copy that broke off is
/// loaded all the same, and the first touch of what is missing ends the process.
std::uint64_t leastBytes(const std::filesystem::path& plugin) {
    std::ifstream file{plugin, std::ios::binary};
    const auto read = [&file](std::uint64_t offset, auto& to) {
        file.seekg(static_cast<std::streamoff>(offset));
        return bool{file.read(reinterpret_cast<char*>(&to), sizeof to)};
    };
    Elf64_Ehdr header{};
    if (!read(0, header) || !std::equal(ELFMAG, ELFMAG + SELFMAG, header.e_ident)) { return 0; }
    std::uint64_t least = header.e_shoff + std::uint64_t{header.e_shnum} * header.e_shentsize;
    for (std::uint64_t i = 0; i < header.e_phnum; ++i) {
        Elf64_Phdr segment{};
        if (!read(header.e_phoff + i * header.e_phentsize, segment)) { break; }
        if (segment.p_type == PT_LOAD) {
            least = std::max<std::uint64_t>(least, segment.p_offset + segment.p_filesz);
        }
    }
    return least;
}

/// With a slash in the name the loader takes the file itself and searches no library path.
std::filesystem::path withDirectory(const std::filesystem::path& plugin) {
    return plugin.has_parent_path() ? plugin : "." / plugin;
}

}  // namespace

AgentFactory PluginLoader::load(const std::filesystem::path& plugin, std::string& error) {
    const std::string name = "plug-in " + plugin.string();
    TRACE9("loading {}", plugin.string());
    std::error_code problem;
    if (!std::filesystem::is_regular_file(plugin, problem)) {
        error = name + ": no such file" + (problem ? " (" + problem.message() + ")" : "");
        return nullptr;
    }
    const std::uintmax_t bytes = std::filesystem::file_size(plugin, problem);
    if (const std::uint64_t least = leastBytes(plugin); !problem && bytes < least) {
        error = name + ": is cut short: " + std::to_string(bytes) + " of at least " +
                std::to_string(least) + " bytes";
        return nullptr;
    }
    void* const library =
        ::dlopen(withDirectory(plugin).c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (library == nullptr) {
        error = name + ": cannot be loaded: " + lastLoadError();
        return nullptr;
    }
    const auto* const revision = static_cast<const char*>(::dlsym(library, kRevisionSymbol));
    if (revision == nullptr) {
        error = name + ": is no agent plug-in: it has no symbol '" + kRevisionSymbol + "'";
        return nullptr;
    }
    // Another revision may lay its objects out differently: nothing of it is called.
    if (std::string_view{revision} != PEL_REVISION) {
        error = name + ": built against revision " + revision + ", this host is revision " +
                PEL_REVISION;
        return nullptr;
    }
    void* const factory = ::dlsym(library, kFactorySymbol);
    if (factory == nullptr) {
        error = name + ": has no symbol '" + kFactorySymbol + "'";
        return nullptr;
    }
    return reinterpret_cast<AgentFactory>(factory);
}

}  // namespace AgentHost
