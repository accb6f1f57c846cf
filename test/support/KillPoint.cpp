#include "test/support/KillPoint.h"

#include <dlfcn.h>
#include <lmdb.h>
#include <signal.h>
#include <sys/uio.h>
#include <unistd.h>

#include <utility>

namespace TestSupport::KillPoint {
namespace {

std::function<Fate(const Write&)> decision;
std::uint64_t count = 0;
bool deciding = false;  // the decision may itself write

[[noreturn]] void die() {
    for (;;) { ::kill(::getpid(), SIGKILL); }
}

Fate fateOf(std::size_t bytes) {
    if (!decision || deciding) { return Fate::goOn; }
    deciding = true;
    const Fate fate = decision({++count, bytes});
    deciding = false;
    if (fate == Fate::dieBefore || (fate == Fate::dieHalfway && bytes == 0)) { die(); }
    return fate;
}

template <class Function>
Function* next(const char* name) {
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

}  // namespace

void onWriteIs(std::function<Fate(const Write&)> decide) {
    decision = std::move(decide);
    count = 0;
}

void killAtIs(std::uint64_t number, Fate fate) {
    onWriteIs(
        [number, fate](const Write& write) { return write.number == number ? fate : Fate::goOn; });
}

std::uint64_t writes() {
    return count;
}

}  // namespace TestSupport::KillPoint

using TestSupport::KillPoint::Fate;
using TestSupport::KillPoint::fateOf;

extern "C" {

ssize_t pwrite(int fd, const void* bytes, std::size_t size, off_t at) {
    static const auto real = TestSupport::KillPoint::next<decltype(pwrite)>("pwrite");
    if (fateOf(size) == Fate::goOn) { return real(fd, bytes, size, at); }
    real(fd, bytes, size / 2, at);
    TestSupport::KillPoint::die();
}

ssize_t writev(int fd, const iovec* parts, int amount) {
    static const auto real = TestSupport::KillPoint::next<decltype(writev)>("writev");
    std::size_t size = 0;
    for (int i = 0; i < amount; ++i) { size += parts[i].iov_len; }
    if (fateOf(size) == Fate::goOn) { return real(fd, parts, amount); }
    real(fd, parts, amount / 2);
    TestSupport::KillPoint::die();
}

int mdb_cursor_put(MDB_cursor* cursor, MDB_val* key, MDB_val* data, unsigned flags) {
    static const auto real =
        TestSupport::KillPoint::next<decltype(mdb_cursor_put)>("mdb_cursor_put");
    fateOf(0);
    return real(cursor, key, data, flags);
}

int mdb_cursor_del(MDB_cursor* cursor, unsigned flags) {
    static const auto real =
        TestSupport::KillPoint::next<decltype(mdb_cursor_del)>("mdb_cursor_del");
    fateOf(0);
    return real(cursor, flags);
}

}  // extern "C"
