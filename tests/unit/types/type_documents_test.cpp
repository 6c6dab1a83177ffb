#include "types/documents/type_documents.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "support/type_documents.h"

using namespace meridian::types;

namespace {

class Documents : public testing::Test {
  protected:
    bool load(const std::string& types) {
        return documents_.load("doc", "<dds>\n<types>\n" + types + "\n</types></dds>", error_);
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

TEST_F(Documents, TheFirstOfSeveralMayUseTypesOfTheSecond) {
    meridian::xml::Documents documents;
    std::string error;
    ASSERT_TRUE(documents.add_text("first",
                                   "<types><struct name='A'><member name='b' type='nonBasic' "
                                   "nonBasicTypeName='B' arrayDimensions='N'/></struct></types>",
                                   error));
    ASSERT_TRUE(documents.add_text("second",
                                   "<dds><types><const name='N' type='int32' value='2'/><struct name='B'>"
                                   "<member name='x' type='int32'/></struct></types></dds>",
                                   error));
    TypesByName types;
    ASSERT_TRUE(make_types(documents, types, error)) << error;
    EXPECT_EQ(types.at("A")->members[0].type->content->name, "B");
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
              "doc:3: element <struct>: \"S\" is already defined, see doc:3: element <struct>: there");
    EXPECT_EQ(error_of("<struct name='1S'/>"), "doc:3: element <struct>: \"1S\" is not a valid name");
    EXPECT_EQ(error_of("<strukt name='S'/>"), "doc:3: element <strukt>: not an element of types");
    EXPECT_EQ(error_of("<struct name='S'><member name='m' type='int32' id='1'/><member name='n' type='int32' "
                       "id='1'/></struct>"),
              "doc:3: element <member>: has the name or the id of \"m\"");
    EXPECT_EQ(error_of("<struct name='S' baseType='S'/>"),
              "doc:3: element <struct>: the base type \"S\" is not another structure");
    EXPECT_EQ(error_of("<typedef name='A' type='nonBasic' nonBasicTypeName='B'/><typedef name='B' "
                       "type='nonBasic' nonBasicTypeName='A'/>"),
              "doc:3: element <typedef>: typedef refers to itself");
    EXPECT_EQ(error_of("<union name='U'><discriminator type='float32'/></union>"),
              "doc:3: element <discriminator>: not a type of whole numbers");
    EXPECT_EQ(error_of("<bitmask name='M' bitBound='8'><flag name='A' position='8'/></bitmask>"),
              "doc:3: element <flag>: a flag needs a name, and a position below the bit bound");
    EXPECT_EQ(error_of("<struct name='S'><member name='m' type='int32' arrayDimensions='N'/></struct>"),
              "doc:3: element <member>: \"N\" is not a number, constant or enumerator");
    EXPECT_NE(error_of("<struct name='S'").find("doc:4: "), std::string::npos) << error_;
    EXPECT_EQ(error_of("<include file='absent.xml'/>"),
              "doc:3: element <include>: absent.xml: No such file or directory");
    EXPECT_EQ(error_of("<include/>"), "doc:3: element <include>: needs a file");
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

TEST_F(Documents, RefuseMistakesInAttributes) {
    const std::pair<const char*, const char*> cases[] = {
        {"<struct name='S' extensiblity='final'/>", "<struct>: unknown attribute \"extensiblity\""},
        {"<struct name='S'><member name='m' type='byte' optinal='true'/></struct>",
         "<member>: unknown attribute \"optinal\""},
        {"<struct name='S'><member name='m' name='n' type='byte'/></struct>",
         "<member>: attribute \"name\" appears twice"},
        {"<struct name='S'><member name='m' type='byte' key='yes'/></struct>",
         "<member>: attribute \"key\": \"yes\" is not one of true, false, 1, 0"},
        {"<struct name='S' autoid='hashed'/>", "<struct>: autoid is sequential or hash"},
        {"<struct name='S'><member name='m' type='byte' sequenceMaxLength='3' mapKeyType='byte'/></struct>",
         "<member>: a map and a sequence at once"},
        {"<enum name='E'><enumerator nane='A'/></enum>", "<enumerator>: unknown attribute \"nane\""},
        {"<enum name='E' bitBound='8'><enumerator name='A' vale='1'/></enum>",
         "<enumerator>: unknown attribute \"vale\""},
        {"<bitmask name='M'><flag name='A' pos='1'/></bitmask>", "<flag>: unknown attribute \"pos\""},
        {"<bitset name='B' baseType='C'><bitfield bit_bound='1'/></bitset>",
         "<bitset>: unknown attribute \"baseType\""},
        {"<typedef name='T' typ='byte'/>", "<typedef>: unknown attribute \"typ\""},
        {"<const name='C' type='int32' valu='1'/>", "<const>: unknown attribute \"valu\""},
        {"<module name='m' x=''/>", "<module>: unknown attribute \"x\""},
    };
    for (const auto& [types, expected] : cases)
        EXPECT_EQ(error_of(types), std::string("doc:3: element ") + expected);
}

TEST_F(Documents, RefuseTextAndUnknownElements) {
    const std::pair<const char*, const char*> cases[] = {
        {"text", "<types>: holds the text \"text\" where elements are expected"},
        {"<struct name='S'>text</struct>", "<struct>: holds the text \"text\" where elements are expected"},
        {"<struct name='S'><member name='m' type='byte'>x</member></struct>",
         "<member>: holds the text \"x\" where elements are expected"},
        {"<struct name='S'><member name='m' type='byte'><key/></member></struct>",
         "<key>: not an element of a member"},
        {"<const name='C' type='int32' value='1'><value/></const>", "<value>: not an element of a constant"},
        {"<enum name='E'><enumerator name='A'><value/></enumerator></enum>",
         "<value>: not an element of an enumerator"},
    };
    for (const auto& [types, expected] : cases) {
        const std::string line = expected[1] == 't' ? "2" : "3";
        EXPECT_EQ(error_of(types), "doc:" + line + ": element " + expected);
    }
}

TEST_F(Documents, RefuseContradictionsInUnions) {
    const auto union_error = [this](const std::string& type, const std::string& contents) {
        return error_of(
            "<enum name='E'><enumerator name='A'/><enumerator name='B' value='5'/></enum>"
            "<union name='U'><discriminator " +
            type + "/>" + contents + "</union>");
    };
    const std::string octet = "type='byte'";
    const auto with_label = [](const std::string& label, const std::string& member) {
        return "<case><caseDiscriminator value='" + label + "'/><member name='" + member +
               "' type='byte'/></case>";
    };
    EXPECT_EQ(union_error(octet, "<discriminator type='byte'/>" + with_label("1", "a")),
              "doc:3: element <discriminator>: a second discriminator");
    EXPECT_EQ(union_error(octet, with_label("default", "a") + with_label("default", "b")),
              "doc:3: element <caseDiscriminator>: a second default");
    EXPECT_EQ(union_error(octet, with_label("1", "a") + with_label("0x1", "b")),
              "doc:3: element <caseDiscriminator>: the label 1 appears twice");
    EXPECT_EQ(union_error(octet, with_label("1", "a") + with_label("2", "a")),
              "doc:3: element <member>: has the name or the id of \"a\"");
    EXPECT_EQ(union_error(octet, "<case><member name='a' type='byte'/></case>"),
              "doc:3: element <case>: a case without a label");
    EXPECT_EQ(union_error(octet,
                          "<case><caseDiscriminator value='1'/><member name='a' type='byte'/>"
                          "<member name='b' type='byte'/></case>"),
              "doc:3: element <case>: a case needs one member");
    EXPECT_EQ(union_error(octet, with_label("256", "a")),
              "doc:3: element <caseDiscriminator>: the label 256 is out of range (0 to 255)");
    EXPECT_EQ(union_error("type='int16'", with_label("-32769", "a")),
              "doc:3: element <caseDiscriminator>: the label -32769 is out of range (-32768 to 32767)");
    EXPECT_EQ(union_error("type='boolean'", with_label("2", "a")),
              "doc:3: element <caseDiscriminator>: the label 2 is out of range (0 to 1)");
    EXPECT_EQ(union_error("type='nonBasic' nonBasicTypeName='E'", with_label("2", "a")),
              "doc:3: element <caseDiscriminator>: the label 2 is not the value of an enumerator");
}

TEST_F(Documents, RefuseWhatIsThereTwiceOrTooLarge) {
    const std::pair<const char*, const char*> cases[] = {
        {"<enum name='E'><enumerator name='A'/><enumerator name='A' value='2'/></enum>",
         "<enumerator>: has the name or the value of \"A\""},
        {"<enum name='E'><enumerator name='A'/><enumerator name='B' value='0'/></enum>",
         "<enumerator>: has the name or the value of \"A\""},
        {"<enum name='E' bitBound='8'><enumerator name='A' value='256'/></enum>",
         "<enumerator>: the value 256 needs more than 8 bits"},
        {"<bitset name='B'><bitfield name='x' type='int8' bit_bound='9'/></bitset>",
         "<bitfield>: the type of a bit field has fewer bits than the field"},
        {"<bitset name='B'><bitfield name='x' type='float32' bit_bound='9'/></bitset>",
         "<bitfield>: the type of a bit field is one of whole numbers"},
        {"<const name='C' type='int8' value='300'/>", "<const>: the value 300 is out of range (-128 to 127)"},
        {"<const name='C' type='uint32' value='-1'/>",
         "<const>: the value -1 is out of range (0 to 4294967295)"},
        {"<const name='C' type='int32' value='many'/>",
         "<const>: \"many\" is not a number, constant or enumerator"},
        {"<const name='C' type='int33' value='1'/>", "<const>: there is no type \"int33\""},
        {"<enum name='E' bitBound='8'><enumerator name='A' value='-129'/></enum>",
         "<enumerator>: the value -129 needs more than 8 bits"},
        {"<bitmask name='M'><flag name='A' position='1'/><flag name='B' position='1'/></bitmask>",
         "<flag>: has the name or the position of \"A\""},
        {"<bitset name='B'><bitfield name='x' bit_bound='1'/><bitfield name='x' bit_bound='1'/></bitset>",
         "<bitfield>: has the name or the position of \"x\""},
        {"<struct name='A'><member name='m' type='byte'/></struct>"
         "<struct name='B' baseType='A'><member name='m' type='byte'/></struct>",
         "<member>: has the name or the id of \"m\""},
        {"<struct name='A'><member name='m' type='byte' id='7'/></struct>"
         "<struct name='B' baseType='A'><member name='n' type='byte' id='7'/></struct>",
         "<member>: has the name or the id of \"m\""},
        {"<struct name='A'><member name='m' type='nonBasic' nonBasicTypeName='A'/></struct>",
         "<struct>: \"A\" holds itself"},
        {"<struct name='A'><member name='m' type='nonBasic' nonBasicTypeName='T'/></struct>"
         "<typedef name='T' type='nonBasic' nonBasicTypeName='A' arrayDimensions='2'/>",
         "<struct>: \"A\" holds itself"},
    };
    for (const auto& [types, expected] : cases)
        EXPECT_EQ(error_of(types), std::string("doc:3: element ") + expected);
    EXPECT_TRUE(
        load("<struct name='List'><member name='v' type='byte'/><member name='next' type='nonBasic' "
             "nonBasicTypeName='List' optional='true'/></struct>"))
        << error_;
}

TEST_F(Documents, NumbersMayBeExpressions) {
    ASSERT_TRUE(
        load("<const name='N' type='int32' value='1 &lt;&lt; 4'/>"
             "<const name='M' type='int32' value='(N + 2) * 3 - -1'/>"
             "<typedef name='T' type='int32' arrayDimensions='N,M,2*3,7/2,7%4,0xf0 &gt;&gt; 4,"
             "8 | 1 ^ 3 &amp; 2,~-3'/>"))
        << error_;
    EXPECT_EQ(type("T").content->dimensions, (std::vector<uint32_t>{16, 55, 6, 3, 3, 15, 11, 2}));
    for (const char* wrong : {"1 +", "(1", "1)", "1 2", "1 / 0", "1 % 0", "1 &lt;&lt; 64", "* 2", "",
                              "1 &lt; 2", "9223372036854775807 + 1", "4611686018427387904 * 2"}) {
        const std::string error =
            error_of(std::string("<typedef name='U' type='int32' arrayDimensions='1,") + wrong + "'/>");
        EXPECT_EQ(error.substr(0, 25), "doc:3: element <typedef>:") << wrong << ": " << error;
        EXPECT_NE(error.find("is not a number, constant or enumerator"), std::string::npos) << error;
    }
}

TEST_F(Documents, ConstantsMayBeOfAnyPrimitiveType) {
    EXPECT_TRUE(
        load("<const name='A' type='float64' value='1.5'/><const name='B' type='string' value='x'/>"
             "<const name='C' type='uint64' value='18446744073709551615'/>"
             "<const name='D' type='char8' value='x'/><const name='E' type='boolean' value='True'/>"
             "<const name='F' type='int64' value='-9223372036854775807'/>"
             "<const name='G' type='nonBasic' nonBasicTypeName='T' value='7'/>"
             "<typedef name='T' type='byte'/>"))
        << error_;
}

TEST_F(Documents, NumbersMayBeOctal) {
    ASSERT_TRUE(load("<typedef name='T' type='int32' arrayDimensions='010,0x10,10'/>")) << error_;
    EXPECT_EQ(type("T").content->dimensions, (std::vector<uint32_t>{8, 16, 10}));
    EXPECT_EQ(error_of("<typedef name='U' type='int32' arrayDimensions='08'/>"),
              "doc:3: element <typedef>: \"08\" is not a number, constant or enumerator");
}

TEST_F(Documents, RefuseWhatNestsWithoutEnd) {
    std::string deep;
    for (int i = 0; i < 100; ++i)
        deep += "<module name='m'>";
    for (int i = 0; i < 100; ++i)
        deep += "</module>";
    EXPECT_EQ(error_of(deep), "doc:3: element <module>: nested deeper than 100 levels");
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
    const std::string folder = mkdtemp(pattern);
    const auto write = [&folder](const std::string& name, const std::string& text) {
        std::ofstream(folder + "/" + name) << text;
    };
    std::filesystem::create_directory(folder + "/sub");
    write("main.xml",
          "<dds><types><module name='m'><include file='a.xml'/></module>"
          "<include file='sub/b.xml'/></types></dds>");
    write("a.xml",
          "<types><include file='sub/b.xml'/><struct name='A'><member name='b' type='nonBasic' "
          "nonBasicTypeName='B'/></struct></types>");
    write("sub/b.xml",
          "<dds><types><include file='../a.xml'/><struct name='B'><member name='x' type='byte'/>"
          "</struct></types></dds>");
    EXPECT_TRUE(documents_.load_file(folder + "/main.xml", error_)) << error_;
    EXPECT_EQ(documents_.names(), (std::vector<std::string>{"A", "B"}));
    EXPECT_EQ(type("A").members[0].type->name, "B");
    write("bad.xml", "<types>\n<struct name='X'><member name='m' type='none'/></struct></types>");
    EXPECT_FALSE(documents_.load_file(folder + "/bad.xml", error_));
    EXPECT_EQ(error_, folder + "/bad.xml:2: element <member>: there is no type \"none\"");
    EXPECT_EQ(documents_.names().size(), 2u);
    EXPECT_FALSE(documents_.load_file(folder, error_));
    EXPECT_EQ(error_, folder + ": is a directory");
    std::filesystem::remove_all(folder);
}
