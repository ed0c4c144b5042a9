#ifndef KRBOX_BENCH_LIBRARY_GENERATOR_H
#define KRBOX_BENCH_LIBRARY_GENERATOR_H

#include <cstdint>
#include <string>

namespace krbench {

// The shape of a synthetic library: boxes are spread evenly over the folders at the given
// depth, each inner folder holding fanOut subfolders. Fan-out 1 and depth 1 is the flat
// layout: every box in one folder.
struct LibraryShape {
  int boxes = 1000;
  int fanOut = 10;
  int depth = 2;
  std::uint32_t seed = 20261121;
  // Whether every box is in one folder.
  bool isFlat() const { return fanOut == 1 && depth == 1; }
};

// What was written, for the benchmark's per-box figures.
struct GeneratedLibrary {
  int boxes = 0;
  int folders = 0;
  int behaviors = 0;
  int resourceFiles = 0;
  std::uint64_t bytes = 0;  // file content, listings and metadata included
};

// Writes a box library into directory, which must not exist yet. The same shape and seed
// always give the same files, byte for byte.
GeneratedLibrary generateLibrary(const std::string& directory, const LibraryShape& shape);

// One box file's document, as the generator writes it, for boxes added outside the tree.
std::string generateBoxFile(std::uint32_t seed, int index, bool behavior);

}  // namespace krbench

#endif
