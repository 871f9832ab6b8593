#include "DorAnswerForm.h"

#include <cctype>
#include <map>
#include <optional>
#include <stdexcept>

#include "KivLittleEndian.h"

namespace kiv {
namespace {

class FormParser {
 public:
  explicit FormParser(const char* szText) : m_p(szText) {}

  DorForm Whole() {
    DorForm zForm;
    if (*m_p != '\0') zForm = Fields();
    if (*m_p != '\0') Fail();
    return zForm;
  }

 private:
  [[noreturn]] static void Fail() { throw std::logic_error("a form of an answer is malformed"); }

  DorForm Fields() {
    DorForm zForm;
    for (;;) {
      zForm.push_back(Field());
      if (*m_p != ',') return zForm;
      ++m_p;
      Blank();
    }
  }
  DorField Field() {
    DorField z;
    std::string strWord = Word();
    if (std::isdigit(static_cast<unsigned char>(strWord[0]))) {
      z.m_nTimes = static_cast<uint32_t>(std::stoul(strWord));
      Blank();
      strWord = Word();
    }
    const bool bList = strWord == "list";
    if (!bList && (strWord.size() != 1 || std::string("ifsc").find(strWord) == std::string::npos)) Fail();
    if (z.m_nTimes == 0 || (z.m_nTimes != 1 && strWord != "i" && strWord != "f")) Fail();
    z.m_cKind = bList ? 'l' : strWord[0];
    Blank();
    z.m_strName = Word();
    if (!bList) return z;
    Blank();
    Pass('(');
    z.m_vzItem = Fields();
    Pass(')');
    return z;
  }
  std::string Word() {
    std::string strWord;
    while (std::isalnum(static_cast<unsigned char>(*m_p)) || *m_p == '_') strWord += *m_p++;
    if (strWord.empty()) Fail();
    return strWord;
  }
  void Blank() { Pass(' '); }
  void Pass(char c) {
    if (*m_p != c) Fail();
    ++m_p;
  }

  const char* m_p;
};

const DorForm* Parsed(const char* szForm) {
  static std::map<const char*, DorForm> mapForms;
  if (szForm == nullptr) return nullptr;
  const auto it = mapForms.find(szForm);
  return it != mapForms.end() ? &it->second : &mapForms.emplace(szForm, DorParseForm(szForm)).first->second;
}

// How many numbers an item of a list takes; nothing where it has a text or a list in it.
struct ItemWidth {
  size_t m_nInteger = 0, m_nFloat = 0;
};

size_t FloatNum(const DorField& zField) {
  return zField.m_cKind == 'c' ? 3 : zField.m_nTimes;
}

std::optional<ItemWidth> WidthOf(const DorForm& zItem) {
  ItemWidth z;
  for (const DorField& zField : zItem) {
    if (zField.m_cKind == 's' || zField.m_cKind == 'l') return std::nullopt;
    if (zField.m_cKind == 'i')
      z.m_nInteger += zField.m_nTimes;
    else
      z.m_nFloat += FloatNum(zField);
  }
  return z;
}

class AnswerReader {
 public:
  explicit AnswerReader(const KivByteBuffer& vcBytes) : m_vcBytes(vcBytes) {}

  bool IsAtEnd() const { return m_iCursor == m_vcBytes.size(); }

  bool Integer(int64_t& iValue) {
    if (Left() < 8) return false;
    iValue = KivLoad<int64_t>(m_vcBytes.data() + m_iCursor);
    m_iCursor += 8;
    return true;
  }
  bool Text(KivWString& csText) {
    int64_t nUnits = 0;
    if (!Integer(nUnits) || nUnits < 0 || static_cast<uint64_t>(nUnits) > Left() / 2) return false;
    csText.resize(static_cast<size_t>(nUnits));
    for (char16_t& c : csText) {
      c = static_cast<char16_t>(KivLoad<uint16_t>(m_vcBytes.data() + m_iCursor));
      m_iCursor += 2;
    }
    return true;
  }
  bool Values(const DorForm& zForm, std::vector<DorValue>& vzValue) {
    vzValue.reserve(zForm.size());
    for (const DorField& zField : zForm) {
      DorValue& z = vzValue.emplace_back();
      z.m_pzField = &zField;
      if (!Value(zField, z)) return false;
    }
    return true;
  }

 private:
  size_t Left() const { return m_vcBytes.size() - m_iCursor; }

  bool Float(double& dValue) {
    if (Left() < 8) return false;
    dValue = KivLoad<double>(m_vcBytes.data() + m_iCursor);
    m_iCursor += 8;
    return true;
  }
  bool Value(const DorField& zField, DorValue& z) {
    switch (zField.m_cKind) {
      case 's':
        return Text(z.m_csText);
      case 'l':
        return List(zField, z);
      case 'i':
        z.m_viInteger.resize(zField.m_nTimes);
        for (int64_t& i : z.m_viInteger)
          if (!Integer(i)) return false;
        return true;
      default:
        z.m_vdFloat.resize(FloatNum(zField));
        for (double& d : z.m_vdFloat)
          if (!Float(d)) return false;
        return true;
    }
  }
  // Each item takes 8 bytes at the least.
  bool List(const DorField& zField, DorValue& z) {
    int64_t nItems = 0;
    if (!Integer(nItems) || nItems < 0 || static_cast<uint64_t>(nItems) > Left() / 8) return false;
    z.m_nItems = static_cast<size_t>(nItems);
    if (const std::optional<ItemWidth> zWidth = WidthOf(zField.m_vzItem)) return Numbers(zField.m_vzItem, *zWidth, z);
    for (int64_t i = 0; i < nItems; ++i)
      if (!Values(zField.m_vzItem, z.m_vvzItem.emplace_back())) return false;
    return true;
  }

  bool Numbers(const DorForm& zItem, const ItemWidth& zWidth, DorValue& z) {
    const size_t nWidth = zWidth.m_nInteger + zWidth.m_nFloat;
    if (z.m_nItems > Left() / 8 / nWidth) return false;
    z.m_viInteger.resize(z.m_nItems * zWidth.m_nInteger);
    z.m_vdFloat.resize(z.m_nItems * zWidth.m_nFloat);
    int64_t* pi = z.m_viInteger.data();
    double* pd = z.m_vdFloat.data();
    for (size_t i = 0; i < z.m_nItems; ++i)
      for (const DorField& zField : zItem) {
        if (zField.m_cKind == 'i')
          for (size_t k = 0; k < zField.m_nTimes; ++k) Integer(*pi++);
        else
          for (size_t k = 0; k < FloatNum(zField); ++k) Float(*pd++);
      }
    return true;
  }

  const KivByteBuffer& m_vcBytes;
  size_t m_iCursor = 0;
};

}  // namespace

DorForm DorParseForm(const char* szForm) {
  return FormParser(szForm).Whole();
}

const DorForm* DorFieldsOf(const DorRequestRow& zRow) {
  return Parsed(zRow.m_szFields);
}

const DorForm* DorAnswerFormOf(const DorRequestRow& zRow) {
  return Parsed(zRow.m_szAnswer);
}

bool DorDecodeAnswer(const DorRequestRow& zRow, const KivByteBuffer& vcResult, DorDecodedAnswer& zAnswer) {
  zAnswer = DorDecodedAnswer();
  AnswerReader zReader(vcResult);
  if (!zReader.Integer(zAnswer.m_iCode)) return false;
  if (zAnswer.m_iCode != 0) return zReader.Text(zAnswer.m_csReason) && zReader.IsAtEnd();
  const DorForm* pzForm = DorAnswerFormOf(zRow);
  return pzForm != nullptr && zReader.Values(*pzForm, zAnswer.m_vzValue) && zReader.IsAtEnd();
}

std::vector<DorValue> DorValue::Item(size_t i) const {
  const DorForm& zForm = m_pzField->m_vzItem;
  const std::optional<ItemWidth> zWidth = WidthOf(zForm);
  if (!zWidth) return m_vvzItem.at(i);
  auto pi = m_viInteger.begin() + static_cast<ptrdiff_t>(i * zWidth->m_nInteger);
  auto pd = m_vdFloat.begin() + static_cast<ptrdiff_t>(i * zWidth->m_nFloat);
  std::vector<DorValue> vzValue(zForm.size());
  for (size_t k = 0; k < zForm.size(); ++k) {
    DorValue& z = vzValue[k];
    z.m_pzField = &zForm[k];
    if (zForm[k].m_cKind == 'i') {
      z.m_viInteger.assign(pi, pi + zForm[k].m_nTimes);
      pi += zForm[k].m_nTimes;
    } else {
      const auto nFloats = static_cast<ptrdiff_t>(FloatNum(zForm[k]));
      z.m_vdFloat.assign(pd, pd + nFloats);
      pd += nFloats;
    }
  }
  return vzValue;
}

const DorValue* DorFindValue(const std::vector<DorValue>& vzValue, std::string_view strName) {
  for (const DorValue& z : vzValue)
    if (z.m_pzField->m_strName == strName) return &z;
  return nullptr;
}

}  // namespace kiv
