#pragma once

#include "zel/mux/engine/run/mux.h"

namespace zel::mux {

/// Makes the PSI streams of a run whose other streams have been started: PAT, the PMTs (programs
/// may share a PID), DIT and SIT; at the head of `mux.streams`, the PAT first. With
/// `afterRestart` an empty PMT of the version before goes ahead of each PMT, once: receivers that
/// know the version let go of the streams, and read the PMT anew. Fatal 6, 7, 41 and 42, warnings
/// 9, 16, 17 and 78.
void add_psi_streams(tsm_mux& mux, bool afterRestart);

}  // namespace zel::mux
