#include "meridian/type_code.h"

#include <gtest/gtest.h>

#include "types/model/type.h"

using namespace meridian::types;

namespace {

/// A list node: struct Node { long value; sequence<Node> next; }
TypeRef make_list(const char* name = "Node", uint32_t bound = 0) {
    TypeGraph* graph = TypeGraph::create();
    Type* node = graph->add();
    Type* sequence = graph->add();
    node->kind = DDS_TK_STRUCT;
    node->name = name;
    sequence->kind = DDS_TK_SEQUENCE;
    sequence->bound = bound;
    sequence->content = node;
    Member value;
    value.name = "value";
    value.type = graph->primitive(DDS_TK_LONG);
    value.key = true;
    Member next;
    next.name = "next";
    next.id = 1;
    next.type = sequence;
    node->members = {value, next};
    return TypeRef::adopt(node);
}

const DDS_TypeCode& sequence_of(const DDS_TypeCode& list) {
    DDS_ExceptionCode_t ex = DDS_NO_EXCEPTION_CODE;
    return *list.member_type(1, ex);
}

} // namespace

TEST(TypeCode, AnswersForAStructure) {
    const TypeRef list = make_list();
    const DDS_TypeCode& tc = *list;
    DDS_ExceptionCode_t ex = -1;
    EXPECT_EQ(tc.kind(ex), DDS_TK_STRUCT);
    EXPECT_EQ(ex, DDS_NO_EXCEPTION_CODE);
    EXPECT_EQ(tc.member_count(ex), 2u);
    EXPECT_STREQ(tc.member_name(1, ex), "next");
    EXPECT_TRUE(tc.has_key());
    EXPECT_FALSE(sequence_of(tc).has_key());
    EXPECT_FALSE(tc.is_member_optional(1, ex));
    EXPECT_EQ(tc.member_bitfield_bits(0, ex), DDS_TYPECODE_NOT_BITFIELD);
    EXPECT_EQ(tc.member_type(0, ex)->kind(ex), DDS_TK_LONG);
    const DDS_TypeCode* sequence = &sequence_of(tc);
    EXPECT_EQ(sequence->length(ex), DDS_TYPECODE_UNBOUNDED);
    EXPECT_EQ(sequence->content_type(ex), &tc);
    EXPECT_EQ(ex, DDS_NO_EXCEPTION_CODE);
    EXPECT_EQ(tc.concrete_base_type(ex), nullptr);
    EXPECT_EQ(ex, DDS_NO_EXCEPTION_CODE);
}

TEST(TypeCode, SaysWhyThereIsNoAnswer) {
    const TypeRef held = make_list();
    const DDS_TypeCode* list = held.get();
    DDS_ExceptionCode_t ex = DDS_NO_EXCEPTION_CODE;
    EXPECT_EQ(list->member_name(2, ex), nullptr);
    EXPECT_EQ(ex, DDS_BOUNDS_EXCEPTION_CODE);
    EXPECT_EQ(list->content_type(ex), nullptr);
    EXPECT_EQ(ex, DDS_BADKIND_EXCEPTION_CODE);
    EXPECT_EQ(list->default_index(ex), DDS_TYPECODE_NO_DEFAULT);
    EXPECT_EQ(ex, DDS_BADKIND_EXCEPTION_CODE);
    EXPECT_FALSE(list->equal(nullptr, ex));
    EXPECT_EQ(ex, DDS_BAD_PARAM_EXCEPTION_CODE);
    EXPECT_EQ(list->member_type(0, ex)->member_count(ex), 0u);
    EXPECT_EQ(ex, DDS_BADKIND_EXCEPTION_CODE);
}

TEST(TypeCode, ComparesRecursiveTypesByStructure) {
    DDS_ExceptionCode_t ex = -1;
    const TypeRef held = make_list();
    const DDS_TypeCode* a = held.get();
    EXPECT_TRUE(a->equal(make_list().get(), ex));
    EXPECT_EQ(ex, DDS_NO_EXCEPTION_CODE);
    EXPECT_FALSE(a->equal(make_list("Other").get(), ex));
    EXPECT_FALSE(a->equal(make_list("Node", 5).get(), ex));
    EXPECT_FALSE(a->equal(a->member_type(0, ex), ex));
}

TEST(TypeCode, ACloneOutlivesItsOriginal) {
    DDS_TypeCodeFactory* factory = DDS_TypeCodeFactory::get_instance();
    DDS_ExceptionCode_t ex = -1;
    TypeRef list = make_list();
    DDS_TypeCode* clone = factory->clone_tc(list.get(), ex);
    EXPECT_EQ(ex, DDS_NO_EXCEPTION_CODE);
    EXPECT_TRUE(clone->equal(list.get(), ex));
    DDS_TypeCode* second = factory->clone_tc(clone, ex);
    list = TypeRef();
    factory->delete_tc(clone, ex);
    EXPECT_EQ(ex, DDS_NO_EXCEPTION_CODE);
    EXPECT_STREQ(second->member_type(1, ex)->content_type(ex)->member_name(0, ex), "value");
    factory->delete_tc(second, ex);
    EXPECT_EQ(factory->clone_tc(nullptr, ex), nullptr);
    EXPECT_EQ(ex, DDS_BAD_PARAM_EXCEPTION_CODE);
    factory->delete_tc(nullptr, ex);
    EXPECT_EQ(ex, DDS_BAD_PARAM_EXCEPTION_CODE);
}

TEST(TypeCode, SelectsUnionMembers) {
    TypeGraph* graph = TypeGraph::create();
    Type* type = graph->add();
    const TypeRef holder = TypeRef::adopt(type);
    type->kind = DDS_TK_UNION;
    type->discriminator = graph->primitive(DDS_TK_LONG);
    Member labelled;
    labelled.name = "labelled";
    labelled.labels = {3, -4};
    Member fallback;
    fallback.name = "fallback";
    type->members = {labelled, fallback};
    EXPECT_EQ(select_union_member(*type, 5), nullptr);
    EXPECT_EQ(select_union_member(*type, -4), &type->members[0]);
    type->default_index = 1;
    EXPECT_EQ(select_union_member(*type, 5), &type->members[1]);
    DDS_ExceptionCode_t ex = -1;
    EXPECT_EQ(type->member_label_count(0, ex), 2u);
    EXPECT_EQ(type->member_label(0, 1, ex), -4);
    EXPECT_EQ(type->member_label(0, 2, ex), 0);
    EXPECT_EQ(ex, DDS_BOUNDS_EXCEPTION_CODE);
}
