// OutputCommit: every output of one run (the picture, video or image
// sequence, the --values table, the saved presets) is put in place
// together. First each is made durable under its temporary name, which is
// where a full disk or a broken path shows; only when all of them are, they
// are renamed into place, with the interrupting signals held back so the
// renames do not stop halfway. Each rename swaps the new file with the older
// one (RENAME_EXCHANGE), so when a rename fails, the ones done are undone:
// if any output fails, no older file is replaced (on file systems that
// cannot swap, a failing rename can still leave earlier ones in place).
#pragma once

#include <vector>

#include "runtime/pending_file.h"

namespace nimbo::host {

class OutputCommit {
 public:
  // `output` must outlive Commit().
  void Add(PendingOutput& output) { outputs_.push_back(&output); }
  // Throws HostError naming the output that failed, or when a signal came
  // before the renames began.
  void Commit();

 private:
  std::vector<PendingOutput*> outputs_;
};

}  // namespace nimbo::host
