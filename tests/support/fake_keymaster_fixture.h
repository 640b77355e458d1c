// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// An operation object over a fake keymaster, in an empty directory.

#pragma once

#include "fake_keymaster.h"
#include "operation_peer.h"
#include "results.h"

namespace test {

class OverFakeKeymaster : public InTempDir {
  protected:
    FakeKeymaster km;
    const ObjectPtr object = makeObject(&km, false);
    ObjectPeer peer{*object};
    const ObjectPtr alone = makeObject(nullptr, false);  // an object without a keymaster
};

}  // namespace test
