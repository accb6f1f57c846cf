#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

/// Ends this process, by SIGKILL, at one of the writes that it makes to a store: a record put into
/// or deleted from a transaction, or a system call that writes to a file. For a child process that
/// the test forks; linking this file takes the engine's and the C library's places in these calls.
namespace TestSupport::KillPoint {

struct Write {
    std::uint64_t number;  ///< counts from 1
    std::size_t bytes;     ///< of a system call; 0 for a record
};

enum class Fate {
    goOn,
    dieBefore,
    dieHalfway,  ///< half of the bytes are written (a record: as dieBefore)
};

/// Asks for the fate of each write from here on, counting anew. An empty function asks nobody.
void onWriteIs(std::function<Fate(const Write&)> decide);
/// Dies at the write of this number; 0: at none.
void killAtIs(std::uint64_t number, Fate fate = Fate::dieBefore);
/// Writes since then.
std::uint64_t writes();

}  // namespace TestSupport::KillPoint
