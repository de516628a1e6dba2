#pragma once

namespace korin::bench {

void BenchStatistics();   // statistics, histograms, fill on both paths
void BenchConversions();  // conversion kernels and row loops, casts, copies
void BenchSmallBlocks();  // what threads cost a small plane
void BenchChangeBits();   // the whole conversion of an image and its memory
void BenchPaging();       // misses, their bookkeeping, rows in memory
void BenchBudget();       // statistics of an image larger than memory

}  // namespace korin::bench
