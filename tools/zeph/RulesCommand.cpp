// SPDX-License-Identifier: Apache-2.0
#include <array>
#include <iomanip>
#include <iostream>
#include <sstream>

#include "DetectionEngine/configuration/NamedLists.h"
#include "DetectionEngine/scoring/IndicatorRunner.h"
#include "DetectionEngine/scoring/Method.h"
#include "tools/zeph/Common.h"

namespace zeph {

namespace {

void PrintRow(std::uint32_t number, std::string_view name, std::string_view summary) {
  std::ostringstream row;
  row << std::setw(4) << number << "  " << std::left << std::setw(26) << name << ' ' << summary;
  PrintLine(row.str());
}

/// "text, list against a list of texts; text against a text"
std::string ReadingsInWords(const Method& method) {
  std::string words;
  for (const Reading& reading : method.readings) {
    if (reading.value == ValueForm::kNone) continue;
    std::string fields;
    for (const FieldKind kind : kFieldKinds) {
      if ((reading.fields & Only(kind)) == 0) continue;
      fields += (fields.empty() ? "" : ", ") + std::string(KindName(kind));
    }
    if (!fields.empty() && reading.value != ValueForm::kNothing) fields += " against ";
    words += (words.empty() ? "" : "; ") + fields;
    if (reading.value != ValueForm::kNothing) words += FormRow(reading.value).summary;
  }
  return words.empty() ? words : " [" + words + "]";
}

void PrintRules() {
  PrintLine("Fields (FieldID): what an expression looks at");
  for (const Field& field : kFields) {
    PrintRow(field.number, field.name, std::string(field.summary) + " [" + std::string(KindName(field.kind)) + "]");
  }
  PrintLine("\nMethods (MethodID): how it is tested, and what a field is tested against");
  for (const Method& method : kMethods) {
    PrintRow(method.number, method.name, std::string(method.summary) + ReadingsInWords(method));
  }
  PrintLine("\nLists (a Value that names one): what the package knows of the world");
  for (const NamedList& list : kNamedLists) {
    PrintRow(static_cast<std::uint32_t>(list.number), list.name, list.summary);
  }
  PrintLine("\nStages (Category): when a rule runs, in this order");
  for (const StageRow& stage : Stages()) PrintRow(stage.number, stage.name, stage.summary);
  PrintLine("\nOperators (OperatorID): how the expressions of a rule combine");
  for (const Operator& op : Operators()) PrintRow(op.number, op.name, op.summary);
  PrintLine("\nValue types (ValueType): how Value is read");
  for (const ValueTypeRow& type : ValueTypes()) PrintRow(type.number, type.name, type.summary);
}

}  // namespace

void AddRulesCommand(CLI::App& program, int&) {
  CLI::App* command = program.add_subcommand("rules", "List the fields, methods, lists, stages, operators and value types of rules");
  command->footer("Numbers are those of the package's Indicators.xml. docs/rules.md explains how rules are written.");
  command->callback(PrintRules);
}

}  // namespace zeph
