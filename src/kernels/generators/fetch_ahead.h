#pragma once

#include "kernel_generator.h"

// Asking for memory that a loop is going to read.
namespace korin::generators {

// How far ahead of a reading loop memory is fetched: the processor itself stops at
// the end of a page.
inline constexpr int kAheadBytes = 4096;

// Turns what Halide makes of prefetch() into the processor's instruction that brings
// memory into all caches. Halide's own choice passes the outer caches by, where the
// next pass over the same pixels would have found them, and is slower than none.
class FetchIntoAllCaches : public Halide::Internal::IRMutator {
 public:
  static void In(Halide::Pipeline pipeline) {
    pipeline.add_custom_lowering_pass(new FetchIntoAllCaches);
  }

 private:
  using IRMutator::visit;
  Expr visit(const Halide::Internal::Call* op) override {
    using Halide::Internal::Call;
    if (!op->is_intrinsic(Call::prefetch)) return IRMutator::visit(op);
    const Expr first = Halide::reinterpret<std::uint64_t>(op->args[0]);
    const Expr offset = Halide::cast<std::uint64_t>(op->args[1]) * op->type.bytes();
    const Expr address = Halide::reinterpret(Halide::type_of<void*>(), first + offset);
    // For reading, into the nearest cache and those behind it, data.
    return Call::make(Halide::Int(32), "llvm.prefetch.p0i8", {address, 0, 3, 1}, Call::Extern);
  }
};

}  // namespace korin::generators
