// The cost of building, sorting, selecting and flushing a tree of a million file nodes, and the memory of a
// node.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include "Common/nodes/FileNode.h"

namespace keldane {
namespace {

using Node = KeldaneFileNode;

constexpr int kWidth = 100;

/// Folders of 100 entries, down to the third level: at most 1 + 100 + 100² + 100³ nodes.
Node::Pointer build(std::int64_t nodes) {
  Node::Pointer root = Node::create("/", true);
  root->setPath("/");
  std::vector<Node::Pointer> level = {root};
  for (std::int64_t made = 1; made < nodes;) {
    std::vector<Node::Pointer> next;
    for (const Node::Pointer& folder : level) {
      for (int i = 0; i < kWidth && made < nodes; ++i, ++made) {
        // The names are not in order, so that there is something to sort.
        const Node::Pointer child = Node::create("file " + std::to_string(i * 37 % kWidth) + ".txt", true);
        child->setSizeValue(static_cast<std::uint64_t>(made * 7919 % 1000));
        folder->addChild(child);
        next.push_back(child);
      }
    }
    level = std::move(next);
  }
  return root;
}

std::size_t heapInUse() {
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

void count(benchmark::State& state) { state.SetItemsProcessed(state.iterations() * state.range(0)); }

void BM_BuildTree(benchmark::State& state) {
  for (auto _ : state) {
    const std::size_t before = heapInUse();
    Node::Pointer root = build(state.range(0));
    state.PauseTiming();
    state.counters["bytes/node"] =
        static_cast<double>(heapInUse() - before) / static_cast<double>(state.range(0));
    root.reset();
    state.ResumeTiming();
  }
  count(state);
}

/// Runs `operation` on a new tree each time.
template <class Operation>
void onNewTree(benchmark::State& state, const Operation& operation) {
  for (auto _ : state) {
    state.PauseTiming();
    Node::Pointer root = build(state.range(0));
    state.ResumeTiming();
    operation(*root);
    state.PauseTiming();
    root.reset();
    state.ResumeTiming();
  }
  count(state);
}

void BM_SortTree(benchmark::State& state) {
  onNewTree(state, [](Node& root) { root.sortUsingDescriptors({{"fileName"}}); });
}

void BM_SelectTree(benchmark::State& state) {
  onNewTree(state, [](Node& root) {
    root.setSelected(1);
    benchmark::DoNotOptimize(root.selectedChildren(false));
  });
}

void BM_DeepestSelections(benchmark::State& state) {
  onNewTree(state, [](Node& root) {
    root.setSelected(1);
    benchmark::DoNotOptimize(root.deepestFullSelections());
  });
}

void BM_FlushTree(benchmark::State& state) {
  onNewTree(state, [](Node& root) { root.flush(); });
}

#define KELDANE_TREE_SIZES Arg(1000)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond)
BENCHMARK(BM_BuildTree)->KELDANE_TREE_SIZES;
BENCHMARK(BM_SortTree)->KELDANE_TREE_SIZES;
BENCHMARK(BM_SelectTree)->KELDANE_TREE_SIZES;
BENCHMARK(BM_DeepestSelections)->KELDANE_TREE_SIZES;
BENCHMARK(BM_FlushTree)->KELDANE_TREE_SIZES;

}  // namespace
}  // namespace keldane

BENCHMARK_MAIN();
