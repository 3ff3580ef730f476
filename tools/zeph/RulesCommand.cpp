// SPDX-License-Identifier: Apache-2.0
#include <array>
#include <iomanip>
#include <iostream>
#include <sstream>

#include "DetectionEngine/scoring/IndicatorRunner.h"
#include "DetectionEngine/scoring/Method.h"
#include "tools/zeph/Common.h"

namespace zeph {

namespace {

std::string_view KindName(FieldKind kind) {
  switch (kind) {
    case FieldKind::kNone:
      return "none";
    case FieldKind::kNumber:
      return "number";
    case FieldKind::kList:
      return "list";
    case FieldKind::kText:
      return "text";
    case FieldKind::kFlag:
      return "flag";
    case FieldKind::kNumbers:
      return "numbers";
    case FieldKind::kNumberWithText:
      return "number with text";
  }
  return "";
}

void PrintRow(std::uint32_t number, std::string_view name, std::string_view summary) {
  std::ostringstream row;
  row << std::setw(4) << number << "  " << std::left << std::setw(26) << name << ' ' << summary;
  PrintLine(row.str());
}

void PrintRules() {
  PrintLine("Fields (FieldID): what an expression looks at");
  for (const Field& field : kFields) {
    if (field.read == nullptr) continue;
    PrintRow(field.number, field.name, std::string(field.summary) + " [" + std::string(KindName(field.kind)) + "]");
  }
  PrintLine("\nMethods (MethodID): how it is tested");
  for (const Method& method : kMethods) {
    if (method.run != nullptr) PrintRow(method.number, method.name, method.summary);
  }
  PrintLine("\nOperators (OperatorID): how the expressions of a rule combine");
  for (const Operator& op : Operators()) PrintRow(op.number, op.name, op.summary);
  PrintLine("\nValue types (ValueType): how Value is read");
  for (const ValueTypeRow& type : ValueTypes()) PrintRow(type.number, type.name, type.summary);
}

}  // namespace

void AddRulesCommand(CLI::App& program, int&) {
  CLI::App* command = program.add_subcommand("rules", "List the fields, methods, operators and value types of rules");
  command->footer("Numbers are those of the package's Indicators.xml. docs/rules.md explains how rules are written.");
  command->callback(PrintRules);
}

}  // namespace zeph
