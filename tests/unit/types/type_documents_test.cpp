#include "types/documents/type_documents.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

using namespace meridian::types;

namespace {

class Documents : public testing::Test {
  protected:
    bool load(const std::string& types) {
        return documents_.load("doc", "<dds>\n<types>\n" + types + "\n</types></dds>", folder_, error_);
    }
    /// The error that a document gives; what was there before must still be.
    std::string error_of(const std::string& types) {
        const std::vector<std::string> before = documents_.names();
        EXPECT_FALSE(load(types)) << types;
        EXPECT_EQ(documents_.names(), before);
        return error_;
    }
    const Type& type(const std::string& name) {
        static std::vector<TypeRef> held;
        held.push_back(documents_.find(name));
        EXPECT_TRUE(held.back()) << name << ": " << error_;
        return *held.back();
    }

    TypeDocuments documents_;
    std::string folder_;
    std::string error_;
};

} // namespace

TEST_F(Documents, DefineStructuresInModules) {
    ASSERT_TRUE(load(R"(
<module name="std_msgs"><module name="msg"><module name="dds_">
  <struct name="String_" extensibility="final"><member name="data_" type="string"/></struct>
</module></module></module>
<struct name="Base"><member name="id" type="int32" key="true"/></struct>
<struct name="All" baseType="Base" extensibility="mutable">
  <member name="a" type="uint8" optional="true"/>
  <member name="b" type="string" stringMaxLength="5" id="10"/>
  <member name="c" type="nonBasic" nonBasicTypeName="std_msgs::msg::dds_::String_" mustUnderstand="true"/>
  <member name="d" type="float64" sequenceMaxLength="3" arrayDimensions="2,4"/>
  <member name="e" type="unsignedShort" sequenceMaxLength="-1" hashid="color"/>
  <member name="f" type="string" mapKeyType="int32" mapMaxLength="7"/>
  <member name="g" type="wchar"/>
</struct>)"))
        << error_;
    EXPECT_EQ(documents_.names(), (std::vector<std::string>{"All", "Base", "std_msgs::msg::dds_::String_"}));
    const Type& text = type("std_msgs::msg::dds_::String_");
    EXPECT_EQ(text.kind, DDS_TK_STRUCT);
    EXPECT_EQ(text.extensibility, DDS_FINAL_EXTENSIBILITY);
    EXPECT_EQ(text.members[0].type->bound, 0u);
    const Type& all = type("All");
    EXPECT_EQ(all.kind, DDS_TK_VALUE);
    EXPECT_EQ(all.extensibility, DDS_MUTABLE_EXTENSIBILITY);
    EXPECT_EQ(all.base->extensibility, DDS_EXTENSIBLE_EXTENSIBILITY);
    EXPECT_TRUE(all.base->members[0].key);
    EXPECT_TRUE(all.base->members[0].must_understand); // as every key
    EXPECT_TRUE(all.members[0].optional);
    EXPECT_EQ(all.members[0].id, 1u); // after those of the base
    EXPECT_EQ(all.members[1].id, 10u);
    EXPECT_EQ(all.members[1].type->bound, 5u);
    EXPECT_EQ(all.members[2].id, 11u);
    EXPECT_TRUE(all.members[2].must_understand);
    EXPECT_EQ(all.members[2].type->name, "std_msgs::msg::dds_::String_");
    const Type* array = all.members[3].type;
    EXPECT_EQ(array->dimensions, (std::vector<uint32_t>{2, 4}));
    EXPECT_EQ(array->content->kind, DDS_TK_SEQUENCE);
    EXPECT_EQ(array->content->bound, 3u);
    EXPECT_EQ(array->content->content->kind, DDS_TK_DOUBLE);
    EXPECT_EQ(all.members[4].id, 0x0fa5dd70u);
    EXPECT_EQ(all.members[5].type->kind, DDS_TK_MAP);
    EXPECT_EQ(all.members[5].type->bound, 7u);
    EXPECT_EQ(all.members[5].type->key->kind, DDS_TK_LONG);
    EXPECT_EQ(all.members[6].type->kind, DDS_TK_WCHAR);
}

TEST_F(Documents, DefineUnionsEnumerationsAndMasks) {
    ASSERT_TRUE(load(R"xml(
<const name="TWO" type="int32" value="2"/>
<const name="ALSO" type="int32" value="(TWO)"/>
<enum name="Color" bitBound="8"><enumerator name="RED"/><enumerator name="GREEN" value="5"/><enumerator name="BLUE"/></enum>
<bitmask name="Mask" bitBound="16"><flag name="A"/><flag name="B" position="9"/><bit_value name="C"/></bitmask>
<bitset name="Bits"><bitfield name="x" bit_bound="3"/><bitfield bit_bound="4"/><bitfield name="y" type="int16" bit_bound="10"/></bitset>
<typedef name="Row" type="long" arrayDimensions="ALSO"/>
<union name="Choice" extensibility="final">
  <discriminator type="nonBasic" nonBasicTypeName="Color"/>
  <case><caseDiscriminator value="RED"/><caseDiscriminator value="Color::BLUE"/><member name="row" type="nonBasic" nonBasicTypeName="Row"/></case>
  <case><caseDiscriminator value="default"/><member name="other" type="string"/></case>
</union>
<union name="OnChar"><discriminator type="char8"/><case><caseDiscriminator value="'a'"/><member name="m" type="byte"/></case></union>
)xml")) << error_;
    const Type& choice = type("Choice");
    EXPECT_EQ(choice.members[0].labels, (std::vector<int32_t>{0, 6}));
    EXPECT_EQ(choice.default_index, 1);
    EXPECT_EQ(resolve_alias(choice.members[0].type)->dimensions, (std::vector<uint32_t>{2}));
    EXPECT_EQ(type("Color").bit_bound, 8);
    const Type& mask = type("Mask");
    EXPECT_EQ(mask.members[1].value, 9);
    EXPECT_EQ(mask.members[2].value, 10);
    const Type& bits = type("Bits");
    ASSERT_EQ(bits.members.size(), 2u);
    EXPECT_EQ(bits.members[1].value, 7);
    EXPECT_EQ(bits.members[1].bits, 10);
    EXPECT_EQ(bits.members[1].type->kind, DDS_TK_SHORT);
    EXPECT_EQ(bits.bit_bound, 17);
    EXPECT_EQ(type("OnChar").members[0].labels, (std::vector<int32_t>{'a'}));
}

TEST_F(Documents, MayUseTypesBeforeTheyAreDefinedAndInThemselves) {
    ASSERT_TRUE(load(R"(
<struct name="Tree"><member name="value" type="nonBasic" nonBasicTypeName="Later"/>
  <member name="children" type="nonBasic" nonBasicTypeName="Tree" sequenceMaxLength="-1"/></struct>
<typedef name="Later" type="int64"/>)"))
        << error_;
    const Type& tree = type("Tree");
    EXPECT_EQ(tree.members[1].type->content, &tree);
    EXPECT_EQ(resolve_alias(tree.members[0].type)->kind, DDS_TK_LONGLONG);
    // A later document may use the types of an earlier one.
    ASSERT_TRUE(load(
        R"(<struct name="Forest"><member name="trees" type="nonBasic" nonBasicTypeName="Tree"/></struct>)"));
    EXPECT_TRUE(equal(*type("Forest").members[0].type, tree));
}

TEST_F(Documents, LookForNamesFromTheInsideOut) {
    ASSERT_TRUE(load(R"(
<struct name="S"><member name="outer" type="byte"/></struct>
<module name="m"><struct name="S"><member name="inner" type="byte"/></struct>
  <struct name="User"><member name="a" type="nonBasic" nonBasicTypeName="S"/>
    <member name="b" type="nonBasic" nonBasicTypeName="::S"/></struct></module>)"))
        << error_;
    const Type& user = type("m::User");
    EXPECT_EQ(user.members[0].type->name, "m::S");
    EXPECT_EQ(user.members[1].type->name, "S");
}

TEST_F(Documents, SayWhatIsWrongAndWhere) {
    EXPECT_EQ(
        error_of(
            "<struct name=\"S\">\n<member name=\"m\" type=\"nonBasic\" nonBasicTypeName=\"No\"/></struct>"),
        "doc:4: element <member>: there is no type \"No\"");
    EXPECT_EQ(error_of("<struct name='S'><member name='m' type='int32' sequenceMaxLength='0'/></struct>"),
              "doc:3: element <member>: sequenceMaxLength must be positive, or -1 for none");
    EXPECT_EQ(error_of("<struct name='S'/><struct name='S'/>"),
              "doc:3: element <struct>: \"S\" is defined already, see doc:3: element <struct>: there");
    EXPECT_EQ(error_of("<struct name='1S'/>"), "doc:3: element <struct>: its name \"1S\" is none");
    EXPECT_EQ(error_of("<strukt name='S'/>"), "doc:3: element <strukt>: not an element of types");
    EXPECT_EQ(error_of("<struct name='S'><member name='m' type='int32' id='1'/><member name='n' type='int32' "
                       "id='1'/></struct>"),
              "doc:3: element <member>: it has the name or the id of \"m\"");
    EXPECT_EQ(error_of("<struct name='S' baseType='S'/>"),
              "doc:3: element <struct>: its base type \"S\" is no other structure");
    EXPECT_EQ(error_of("<typedef name='A' type='nonBasic' nonBasicTypeName='B'/><typedef name='B' "
                       "type='nonBasic' nonBasicTypeName='A'/>"),
              "doc:3: element <typedef>: it stands for itself");
    EXPECT_EQ(error_of("<union name='U'><discriminator type='float32'/></union>"),
              "doc:3: element <discriminator>: not a type of whole numbers");
    EXPECT_EQ(error_of("<bitmask name='M' bitBound='8'><flag name='A' position='8'/></bitmask>"),
              "doc:3: element <flag>: a flag needs a name, and a position below the bit bound");
    EXPECT_EQ(error_of("<struct name='S'><member name='m' type='int32' arrayDimensions='N'/></struct>"),
              "doc:3: element <member>: \"N\" is no number, constant or enumerator");
    EXPECT_NE(error_of("<struct name='S'").find("doc:4: "), std::string::npos) << error_;
    EXPECT_NE(
        error_of("<include file='absent.xml'/>").find("doc:3: element <include>: absent.xml: cannot be read"),
        std::string::npos)
        << error_;
    EXPECT_EQ(error_of("<const name='A' type='int32' value='B'/><const name='B' type='int32' value='A'/>"
                       "<typedef name='T' type='int32' arrayDimensions='A'/>")
                  .substr(0, 6),
              "doc:3:");
}

TEST_F(Documents, RefuseUnknownElementsEverywhere) {
    EXPECT_EQ(
        error_of("<union name='U'><discriminator type='int32'/><member name='m' type='int32'/></union>"),
        "doc:3: element <member>: not an element of a union");
    EXPECT_EQ(
        error_of("<union name='U'><discriminator type='int32'/><case><label value='1'/><member name='m' "
                 "type='int32'/></case></union>"),
        "doc:3: element <label>: not an element of a case");
    EXPECT_EQ(error_of("<enum name='E'><literal name='A'/></enum>"),
              "doc:3: element <literal>: not an element of an enumeration");
    EXPECT_EQ(error_of("<bitmask name='M'><bit name='A'/></bitmask>"),
              "doc:3: element <bit>: not an element of a bit mask");
    EXPECT_EQ(error_of("<bitset name='B'><field name='A'/></bitset>"),
              "doc:3: element <field>: not an element of a bit set");
}

TEST_F(Documents, NumbersMayBeOctal) {
    ASSERT_TRUE(load("<typedef name='T' type='int32' arrayDimensions='010,0x10,10'/>")) << error_;
    EXPECT_EQ(type("T").content->dimensions, (std::vector<uint32_t>{8, 16, 10}));
    EXPECT_EQ(error_of("<typedef name='U' type='int32' arrayDimensions='08'/>"),
              "doc:3: element <typedef>: \"08\" is no number, constant or enumerator");
}

TEST_F(Documents, RefuseWhatNestsWithoutEnd) {
    std::string deep;
    for (int i = 0; i < 100; ++i)
        deep += "<module name='m'>";
    for (int i = 0; i < 100; ++i)
        deep += "</module>";
    EXPECT_NE(error_of(deep).find("modules nest too deeply"), std::string::npos) << error_;
    std::string chain;
    for (int i = 0; i < 300; ++i) {
        chain += "<struct name='S" + std::to_string(i) +
                 "'><member name='m' type='nonBasic' nonBasicTypeName='S" + std::to_string(i + 1) +
                 "'/></struct>";
    }
    EXPECT_NE(error_of(chain + "<struct name='S300'/>").find("types nest deeper than"), std::string::npos)
        << error_;
}

TEST_F(Documents, IncludeOtherFiles) {
    char pattern[] = "/tmp/type_documents.XXXXXX";
    folder_ = mkdtemp(pattern);
    std::filesystem::create_directory(folder_ + "/sub");
    std::ofstream(folder_ + "/a.xml") << "<types><include file='sub/b.xml'/><struct name='A'><member "
                                         "name='b' type='nonBasic' nonBasicTypeName='B'/></struct></types>";
    std::ofstream(folder_ + "/sub/b.xml")
        << "<dds><types><include file='../a.xml'/><struct name='B'/></types></dds>";
    std::ofstream(folder_ + "/bad.xml")
        << "<types>\n<struct name='X'><member name='m' type='none'/></struct></types>";
    EXPECT_TRUE(load("<include file='a.xml'/><include file='sub/b.xml'/>")) << error_;
    EXPECT_EQ(type("A").members[0].type->name, "B");
    EXPECT_NE(
        error_of("<include file='bad.xml'/>").find("bad.xml:2: element <member>: there is no type \"none\""),
        std::string::npos)
        << error_;
    std::string error;
    TypeDocuments fresh;
    EXPECT_TRUE(fresh.load_file(folder_ + "/a.xml", error)) << error;
    EXPECT_FALSE(fresh.load_file(folder_, error));
    EXPECT_NE(error.find("cannot be read"), std::string::npos) << error;
    std::filesystem::remove_all(folder_);
}
