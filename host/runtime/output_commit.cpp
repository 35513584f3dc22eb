#include "runtime/output_commit.h"

#include "runtime/interrupt.h"

namespace nimbo::host {

void OutputCommit::Commit() {
  for (PendingOutput* output : outputs_) output->Seal();
  const InterruptsHeld held;
  ThrowIfInterrupted();  // a signal that came while sealing still stops the run
  for (PendingOutput* output : outputs_) output->Publish();
  outputs_.clear();
}

}  // namespace nimbo::host
