// The inline code of the public headers under a compiler's undefined-behaviour sanitizer. The
// library proper is linked as it is: what is looked at is what an application compiles itself, and
// above all that packed records are used as packed. Ends with 0, or at the first fault.

#include <cstdio>
#include <memory>

#include "qx_db/qx_db.h"
#include "qx_db/record/record_impl.h"

namespace qx {

#pragma pack(push, 4)

/// A record of the application's own, so that its pools and operations are compiled here.
struct tagTUbsan final : TRecord<tagTUbsan, 110> {
  Key key = 0;
  std::int32_t odd = 1;  ///< leaves what follows at 4 modulo 8
  double number = 2;
  PackedDouble numbers[5]{1, 2, 3, 4, 5};
  tagTVector3<double> vector{1, 2, 3};
  std::uint64_t serial = 7;
  TRef<code::kNode> node;
  TRefArray<code::kNode> nodes;
  TArray<double> values;
  TArray<tagTElemSide> sides;
  TString<10> text;
};

#pragma pack(pop)

QX_DECLARE_RECORD(tagTUbsan);

QX_RECORD(tagTUbsan) {
  rows.Add(u"_ODD", &tagTUbsan::odd)
      .Add(u"_NUMBER", &tagTUbsan::number)
      .In(unit::kLength)
      .AddNumbered(u"_NUMBER", &tagTUbsan::numbers)
      .In(unit::kLength)
      .Add(u"_VECTOR", &tagTUbsan::vector)
      .In(unit::kLength)
      .Add(u"_SERIAL", &tagTUbsan::serial)
      .Add(u"_NODE", &tagTUbsan::node)
      .Add(u"_NODES", &tagTUbsan::nodes)
      .Add(u"_VALUES", &tagTUbsan::values)
      .In(unit::kLength)
      .Add(u"_SIDES", &tagTUbsan::sides)
      .Add(u"_TEXT", &tagTUbsan::text);
  fields.Add("NUMBERS", &tagTUbsan::numbers).Add("VECTOR", &tagTUbsan::vector);
}

namespace {

/// Makes, copies, changes and reads records one by one and in arrays.
template <class T>
void UseRecord() {
  auto array = std::make_unique<T[]>(3);
  array[1] = array[0];
  T copy(array[1]);
  T moved(std::move(copy));
  array[2] = std::move(moved);
  array[0].Init();
  TVArray<T> whole;
  whole.SetSize(3);
  whole[2] = array[2];
  TVArray<T> again(whole);
}

template <class Pool>
void UsePool(Pool& pool) {
  tagTUbsan record;
  for (Key key = 1; key <= 40; ++key) {
    record.key = key;
    record.number += 1;
    for (PackedDouble& number : record.numbers) number *= 1.5;
    record.values.Add(record.numbers[1] + record.vector.y);
    record.sides.Add({ITR{9}, key});
    record.nodes = {record.node, 5};
    record.text.Set(u"twelve units");
    pool.InsertNU(record);
  }
  double sum = 0;
  for (ITR pos = pool.GetHeadPosition(); pos;) {
    tagTUbsan& stored = pool.GetNextNU(pos);
    stored.numbers[3] += stored.vector.z;
    sum += stored.numbers[3] + stored.number + stored.values[0] + stored.sides[0].side;
  }
  const ITR first = pool.Find(1);
  record.key = 100;
  pool.SetAtNU(first, record);
  pool.SortAsc();
  pool.Optimize();
  ITR walking = pool.GetHeadPosition();
  pool.RemoveNext(walking);
  pool.Remove(walking);
  pool.RemoveAll();
  std::printf("%g\n", sum);
}

void UseSession() {
  CQXDBSession session([](CQXDBSession& s) {
    AddStandardPools(s);
    s.AddPool(std::make_unique<DPoolPlain<tagTUbsan>>(&s));
  });
  auto& pool = *session.GetPool<DPoolPlain<tagTUbsan>>(tagTUbsan::kType);
  CTransaction transaction(&session);
  transaction.Begin(u"use");
  UsePool(pool);
  transaction.Commit();
  session.Undo();
  session.Redo();

  DPoolTmp<tagTUbsan> scratch;
  UsePool(scratch);

  tagTUbsan record;
  record.key = 3;
  int external = 0;
  const ITR outside = pool.InsertNUExtDB(record);
  pool.TransferToDB(outside, 0, 0);
  pool.FindExtDB(3, external);
  pool.Private_Import({3}, 1, 0);

  std::string image(record.GetSizePlusVfptr() - 8, '\0');
  record.Data2Stream(image.data(), static_cast<int>(image.size()));
  record.Stream2Data(image.data(), static_cast<int>(image.size()));
  record.ConvertUnitIn(&session.Units());
  record.ConvertUnitPrev(&session.Units());
  record.KeyToIterator(&session);
  record.IteratorToKey(&session);
}

void UseMathematics() {
  const double a[3] = {1, 2, 3}, b[3] = {0, 1, 0};
  double c[3];
  CMathFunc::Cross(a, b, c);
  CMathFunc::Normalize(c);
  CMathFunc::Rotate(a, c, 30, c);
  tagTNode node;
  node.position = (Vector3(node.position) + Vector3(a)).As<tagTVector3<double>>();
  stringtoken tokens(u"a, b,, c");
  for (std::u16string_view token; tokens.next(token);) std::printf("%zu\n", token.size());
  CFixedSizeMemMgr blocks(20);
  void* block = blocks.Alloc();
  blocks.Free(block);
}

}  // namespace
}  // namespace qx

int main() {
#define QX_USE(T) qx::UseRecord<qx::T>();
  QX_FOR_EACH_RECORD(QX_USE)
#undef QX_USE
  qx::UseRecord<qx::tagTUbsan>();
  qx::UseSession();
  qx::UseMathematics();
}
