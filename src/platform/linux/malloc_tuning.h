// limitMallocArenas: glibc gives each thread that allocates its own heap
// arena, up to eight per core, and a freed block goes back only to its own
// arena. The recogniser allocates and frees tens of megabytes per screenshot
// on several threads, so the daemon's memory grew with every thread that
// ever read text (467 MiB after 20 screenshots on a 2-core machine; 268 MiB
// with two arenas, at the same speed). Call once, first thing in main.
#pragma once

namespace klipora {

void limitMallocArenas();

}  // namespace klipora
