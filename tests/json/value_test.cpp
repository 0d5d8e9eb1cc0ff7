#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <functional>
#include <new>
#include <stdexcept>

#include "json/value.hpp"

namespace {

using foundation::json::Array;
using foundation::json::Kind;
using foundation::json::Null;
using foundation::json::Object;
using foundation::json::Undefined;
using foundation::json::Value;

std::string conversionError(Value const& v, std::function<void(Value const&)> const& get) {
  try {
    get(v);
  } catch (std::runtime_error const& e) {
    return e.what();
  }
  return "(no exception)";
}

TEST(ValueKinds, TagsFollowTheFixedOrder) {
  struct Case {
    Value value;
    int tag;
  };
  Case const cases[] = {
      {Value(), 0},        {Value(Null()), 1},   {Value(true), 2}, {Value(1.5), 3}, {Value("s"), 4},
      {Value(Array()), 5}, {Value(Object()), 6}, {Value(1.5f), 7}, {Value(-3L), 8}, {Value(3UL), 9},
  };
  for (auto const& c : cases) {
    EXPECT_EQ(c.value.which(), c.tag);
    EXPECT_EQ(static_cast<int>(c.value.kind()), c.tag);
  }
}

TEST(ValueGetters, ExactKindOnly) {
  Value const d(1.0);
  Value const i(1L);
  Value const u(1UL);
  Value const s("true");
  Value const n{Null()};
  Value const o{Object()};
  Value const a{Array()};
  auto throws = [](Value const& v, auto getter) {
    try {
      getter(v);
    } catch (std::runtime_error const&) {
      return true;
    }
    return false;
  };
  auto getBool = [](Value const& v) { (void)v.get<bool>(); };
  auto getString = [](Value const& v) { (void)v.get<std::string>(); };
  auto getArray = [](Value const& v) { (void)v.get<Array>(); };
  auto getObject = [](Value const& v) { (void)v.get<Object>(); };
  auto getDouble = [](Value const& v) { (void)v.get<double>(); };

  EXPECT_TRUE(throws(d, getBool));    // a number is not a bool
  EXPECT_TRUE(throws(s, getBool));    // nor is the text "true"
  EXPECT_TRUE(throws(n, getString));  // Null is not an empty string
  EXPECT_TRUE(throws(o, getArray));   // an empty object is not an empty array
  EXPECT_TRUE(throws(i, getDouble));  // int64 does not widen
  EXPECT_TRUE(throws(u, getDouble));
  EXPECT_TRUE(throws(i, getBool));
  EXPECT_TRUE(throws(i, getString));
  EXPECT_TRUE(throws(i, getArray));
  EXPECT_TRUE(throws(i, getObject));
  EXPECT_TRUE(a.get<Array>().empty());
  EXPECT_EQ(s.get<std::string>(), "true");
}

TEST(ValueGetters, ErrorNamesHeldAndRequestedKinds) {
  using foundation::json::traits;
  EXPECT_EQ(conversionError(Value(), [](Value const& v) { (void)v.get<std::string>(); }),
            std::string("invalid conversion: ") + traits<Undefined>::name + " to " +
                traits<std::string>::name);
  EXPECT_EQ(
      conversionError(Value(2L), [](Value const& v) { (void)v.get<Object>(); }),
      std::string("invalid conversion: ") + traits<long>::name + " to " + traits<Object>::name);
  EXPECT_EQ(
      conversionError(Value(1.5f), [](Value const& v) { (void)v.get<bool>(); }),
      std::string("invalid conversion: ") + traits<float>::name + " to " + traits<bool>::name);
}

TEST(ValueGetters, FailedGetLeavesTheValueUnchanged) {
  Value v(Array{Value("x")});
  EXPECT_THROW((void)v.get<Object>(), std::runtime_error);
  ASSERT_EQ(v.kind(), Kind::array);
  EXPECT_EQ(v.get<Array>().at(0).get<std::string>(), "x");
}

TEST(ValueCopy, IsDeep) {
  Value source(Array{Value(Object{{"k", Value("v")}})});
  Value target("old");
  target = source;  // string -> array
  target.get<Array>()[0].get<Object>()["k"] = Value("changed");
  target.get<Array>().push_back(Value(1.0));
  EXPECT_EQ(source.get<Array>().size(), 1u);
  EXPECT_EQ(source.get<Array>()[0].get<Object>().at("k").get<std::string>(), "v");

  Value copy(source);
  copy.get<Array>().clear();
  EXPECT_EQ(source.get<Array>().size(), 1u);
}

TEST(ValueCopy, SelfAssignmentKeepsText) {
  Value v("keep me");
  Value& alias = v;
  v = alias;
  EXPECT_EQ(v.get<std::string>(), "keep me");
}

TEST(ValueMove, ConstructionLeavesEmptyContainerOfSameKind) {
  Value object(Object{{"a", Value(1.0)}});
  Value taken(std::move(object));
  EXPECT_EQ(taken.get<Object>().size(), 1u);
  ASSERT_EQ(object.kind(), Kind::object);  // NOLINT(bugprone-use-after-move): the rule under test
  EXPECT_TRUE(object.get<Object>().empty());

  Value text(std::string(100, 'x'));
  Value takenText(std::move(text));
  ASSERT_EQ(text.kind(), Kind::string);  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(takenText.get<std::string>().size(), 100u);
}

TEST(ValueMove, AssignmentBetweenArraysExchangesContents) {
  Value a(Array{Value("a1"), Value("a2")});
  Value b(Array{Value("b1")});
  a = std::move(b);
  ASSERT_EQ(a.get<Array>().size(), 1u);
  EXPECT_EQ(a.get<Array>()[0].get<std::string>(), "b1");
  ASSERT_EQ(b.kind(), Kind::array);  // NOLINT(bugprone-use-after-move)
  ASSERT_EQ(b.get<Array>().size(), 2u);
  EXPECT_EQ(b.get<Array>()[1].get<std::string>(), "a2");
}

TEST(ValueMove, AssignmentAcrossKindsTakesSourceKind) {
  Value target(3.0);
  Value source(Object{{"x", Value(true)}});
  target = std::move(source);
  EXPECT_EQ(target.kind(), Kind::object);
  EXPECT_TRUE(target.get<Object>().at("x").get<bool>());
  EXPECT_EQ(source.kind(), Kind::object);  // NOLINT(bugprone-use-after-move)
}

TEST(ValueConstruction, ContainersAreMovedIn) {
  Array elements{Value(1.0), Value(2.0)};
  Value v(std::move(elements));
  EXPECT_TRUE(elements.empty());  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(v.get<Array>().size(), 2u);
  Value literal("text");
  EXPECT_EQ(literal.kind(), Kind::string);  // not bool
}

}  // namespace
