#pragma once

namespace AgentHost {

/// Has the allocator leave out what it would do for many blocks at once inside some free(), in the
/// middle of a slice: to merge all small blocks that have become free, and to give the top of the
/// heap back to the kernel. After a million entries have gone either takes some 60 ms. So the process
/// stays as large as it once was. First in main() of a process with a scheduler.
void allocatorWorksEvenly();

}  // namespace AgentHost
