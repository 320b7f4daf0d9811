// A graph in a database file, for tests of undo and redo.

#pragma once

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "tests/drivers/PlainSqlite.h"
#include "tests/drivers/TemporaryFolder.h"
#include "tests/support/GraphModel.h"
#include "tests/support/Raises.h"
#include "tests/support/Recording.h"

namespace Kes::testing {

/// Ann leads Bob and Cid, owns Dan, is the mate of Eve and likes Bob; Dan owns
/// Fay. All of it was one transaction.
class UndoTest : public ::testing::Test {
protected:
    UndoTest() {
        recording.reset();
        open(model);
        model.startTransaction();
        for (Pointer<Node>* each : {&ann, &bob, &cid, &dan, &eve, &fay})
            *each = model.newNode();
        ann->label = "Ann";
        bob->boss = ann;
        cid->boss = ann;
        dan->whole = ann;
        fay->whole = dan;
        ann->mate = eve;
        ann->likes.add(static_cast<Node*>(bob));
        model.commit();
        recording.reset();
    }
    ~UndoTest() override { recording.reset(); }

    void open(GraphModel& which) const {
        which.open("recording", file.c_str(), "", "", "synchronous=off");
    }

    template <class Work>
    void transaction(Work work) {
        model.startTransaction();
        work();
        model.commit();
    }

    void rank(Node* node, int to) {
        transaction([&] {
            node->change();
            node->rank = to;
        });
    }

    std::string ask(const std::string& query) const { return PlainSqlite(file).ask(query); }
    std::string column(const std::string& name, const Instance* of) const {
        return ask("SELECT " + name +
                   " FROM Node WHERE KesObjectID = " + std::to_string(of->getObjectID()));
    }
    static std::string id(const Instance* of) { return std::to_string(of->getObjectID()); }

    Recording& recording = Recording::get();
    const TemporaryFolder folder;
    const std::string file = folder.path("graph.db");
    GraphModel model;
    Pointer<Node> ann, bob, cid, dan, eve, fay;
};

}  // namespace Kes::testing
