#pragma once

#include "tests/coherence/tree_model.h"
#include "tests/platform/modelsrv/test_client.h"

namespace coherence {

using modelsrv_tests::Client;

/// What a client can read of a part.
enum class Read { childIds, childNames, elementSum, elementNames, value, element };
inline constexpr unsigned readCount = 6;

/// Makes one request about the part at `chain` and expects the reply that `tree` says, also if
/// there is no such part. `index` is for `Read::element`.
void expectRead(Client& client, const TreeModel& tree, const Chain& chain, Read read,
                ModelSrv::ModelPartIndex index);

}  // namespace coherence
