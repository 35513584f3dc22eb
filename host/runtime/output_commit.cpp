#include "runtime/output_commit.h"

#include "runtime/interrupt.h"

namespace nimbo::host {

void OutputCommit::Commit() {
  for (PendingOutput* output : outputs_) output->Seal();
  const InterruptsHeld held;
  ThrowIfInterrupted();  // a signal that came while sealing still stops the run
  size_t done = 0;
  try {
    for (; done < outputs_.size(); ++done) outputs_[done]->Publish();
  } catch (...) {
    // A rename failed (a full directory, a link to another file system):
    // the older files come back, the failing output's partial ones too.
    for (size_t k = done + 1; k-- > 0;) outputs_[k]->Unpublish();
    throw;
  }
  for (PendingOutput* output : outputs_) output->Finalize();
  outputs_.clear();
}

}  // namespace nimbo::host
