#pragma once
// A session with shorthands for making and editing a small mesh.

#include <gtest/gtest.h>
#include <initializer_list>
#include <string>
#include <vector>

#include "qx_db/lib/message.h"
#include "qx_db/lib/variants.h"
#include "qx_db/qx_db.h"

namespace qx {

/// Sets an edition for the life of the object.
struct InEdition {
  explicit InEdition(Edition edition) { SetEdition(edition); }
  ~InEdition() { SetEdition(Edition::kGeneral); }
  InEdition(const InEdition&) = delete;
  InEdition& operator=(const InEdition&) = delete;
};

/// Hears the messages that would go to the user.
struct Listening : IMessageSink {
  Listening() { SetMessageSink(this); }
  ~Listening() override { SetMessageSink(nullptr); }
  void Show(const Message& message) override {
    std::string line = message.key;
    for (const std::string& argument : message.arguments) line += " " + argument;
    heard.push_back(line);
  }
  std::vector<std::string> heard;
};

/// Stands for the property pool of a host; its records are of any type.
class PropertyPool final : public DPool<tagTDatum> {
 public:
  explicit PropertyPool(CQXDBSession* session) : DPool(code::kProp, session), deletor_(*this) {}
  DeletorBase* GetDeletor() override { return &deletor_; }
  const char16_t* GetIOName() const override { return u"_PROP"; }

 private:
  DeletorBase deletor_;
};

inline void SetUpWithProperties(CQXDBSession& session) {
  AddStandardPools(session);
  session.AddPool(std::make_unique<PropertyPool>(&session));
}

struct MeshModel {
  CQXDBSession session{SetUpWithProperties};
  DPoolNode& nodes = Pool<tagTNode>(session);
  DPoolElem& elements = Pool<tagTElem>(session);
  DPoolEcrd& orientations = Pool<tagTEcrd>(session);
  DPoolCord& systems = Pool<tagTCord>(session);
  PropertyPool& properties = *session.GetPool<PropertyPool>(code::kProp);

  ITR Node(Key key, double x, double y, double z) {
    tagTNode node;
    node.key = key;
    node.position = {x, y, z};
    return nodes.InsertNU(node);
  }
  ITR Element(Key key, std::int32_t type, std::initializer_list<Key> node_keys, ITR property = 0) {
    tagTElem element;
    element.key = key;
    element.type = type;
    element.property = property;
    for (const Key node : node_keys) element.nodes.Add(nodes.Find(node));
    return elements.InsertNU(element);
  }
  ITR Property(Key key) {
    tagTDatum record;
    record.key = key;
    return properties.InsertNU(record);
  }
  template <class T>
  ITR Keyed(Key key) {
    T record;
    record.key = key;
    return Pool<T>(session).InsertNU(record);
  }
  template <class T>
  ITR Find(Key key) {
    return Pool<T>(session).Find(key);
  }
  /// Runs `edit` as one step; the result of its commit.
  template <class Edit>
  int Step(Edit&& edit) {
    CTransaction transaction(&session);
    transaction.Begin(u"edit");
    edit();
    return transaction.Commit();
  }
};

}  // namespace qx
