#include "tools/marketday/Names.h"

#include <fmt/format.h>

namespace marketday {
namespace {

struct Syllable {
    const char* text;
    const char* pinyin;
};

// Characters that companies seldom choose, so that an invented name is nobody's.
constexpr Syllable kFirst[] = {
    {"砚", "yan"},  {"槿", "jin"},  {"澜", "lan"},  {"蓟", "ji"},   {"棠", "tang"},  {"霁", "ji"},   {"翊", "yi"},
    {"珩", "heng"}, {"璟", "jing"}, {"晗", "han"},  {"煦", "xu"},   {"澍", "shu"},   {"沅", "yuan"}, {"汐", "xi"},
    {"浔", "xun"},  {"漪", "yi"},   {"溯", "su"},   {"潼", "tong"}, {"濯", "zhuo"},  {"煜", "yu"},   {"熠", "yi"},
    {"燊", "shen"}, {"璇", "xuan"}, {"瑾", "jin"},  {"琮", "cong"}, {"笙", "sheng"}, {"筠", "yun"},  {"篁", "huang"},
    {"翎", "ling"}, {"苒", "ran"},  {"荻", "di"},   {"莳", "shi"},  {"菀", "wan"},   {"谧", "mi"},   {"邺", "ye"},
    {"郢", "ying"}, {"钰", "yu"},   {"铄", "shuo"}, {"阙", "que"},  {"颢", "hao"},   {"飏", "yang"}, {"鸢", "yuan"},
    {"麓", "lu"},   {"榆", "yu"},   {"椴", "duan"}, {"鹭", "lu"},   {"隼", "sun"},   {"麂", "ji"},
};
constexpr Syllable kSecond[] = {
    {"序", "xu"},   {"屿", "yu"},    {"朔", "shuo"}, {"穹", "qiong"}, {"舟", "zhou"}, {"桥", "qiao"}, {"渡", "du"},
    {"岭", "ling"}, {"峤", "qiao"},  {"峪", "yu"},   {"垣", "yuan"},  {"塬", "yuan"}, {"坞", "wu"},   {"圃", "pu"},
    {"渚", "zhu"},  {"汀", "ting"},  {"洲", "zhou"}, {"湾", "wan"},   {"溪", "xi"},   {"潭", "tan"},  {"壑", "he"},
    {"崖", "ya"},   {"庐", "lu"},    {"廊", "lang"}, {"栈", "zhan"},  {"桅", "wei"},  {"棹", "zhao"}, {"榭", "xie"},
    {"檀", "tan"},  {"樟", "zhang"}, {"橹", "lu"},   {"矩", "ju"},    {"衍", "yan"},  {"芃", "peng"}, {"葵", "kui"},
    {"蒲", "pu"},   {"藜", "li"},    {"蘅", "heng"}, {"穗", "sui"},   {"粟", "su"},
};

struct Trade {
    const char* text;
    const char* spell;
    const char* english;
    const char* industry;
};
constexpr Trade kTrades[] = {
    {"科技", "KJ", "Technology", "软件和信息技术服务业"},
    {"电子", "DZ", "Electronics", "计算机、通信和其他电子设备制造业"},
    {"生物", "SW", "Biotech", "医药制造业"},
    {"药业", "YY", "Pharmaceutical", "医药制造业"},
    {"能源", "NY", "Energy", "电力、热力生产和供应业"},
    {"材料", "CL", "Materials", "非金属矿物制品业"},
    {"化工", "HG", "Chemical", "化学原料和化学制品制造业"},
    {"食品", "SP", "Foods", "食品制造业"},
    {"酒业", "JY", "Distillery", "酒、饮料和精制茶制造业"},
    {"物流", "WL", "Logistics", "道路运输业"},
    {"环境", "HJ", "Environment", "生态保护和环境治理业"},
    {"矿业", "KY", "Mining", "有色金属矿采选业"},
    {"传媒", "CM", "Media", "新闻和出版业"},
    {"置业", "ZY", "Properties", "房地产业"},
    {"银行", "YH", "Bank", "货币金融服务"},
    {"证券", "ZQ", "Securities", "资本市场服务"},
};

constexpr Trade kThemes[] = {
    {"红利", "HL", "Dividend", ""},
    {"消费", "XF", "Consumption", ""},
    {"医药", "YY", "Health Care", ""},
    {"半导体", "BDT", "Semiconductor", ""},
    {"军工", "JG", "Defence", ""},
    {"新能源", "XNY", "New Energy", ""},
    {"银行", "YH", "Bank", ""},
    {"有色", "YS", "Metals", ""},
    {"创新药", "CXY", "Innovative Drug", ""},
    {"机器人", "JQR", "Robot", ""},
    {"人工智能", "RGZN", "Artificial Intelligence", ""},
    {"成长", "CZ", "Growth", ""},
    {"价值", "JZ", "Value", ""},
    {"现金流", "XJL", "Cash Flow", ""},
    {"央企", "YQ", "State Enterprise", ""},
};

constexpr Syllable kProvinces[] = {
    {"北京", "BJ"}, {"上海", "SH"}, {"江苏", "JS"}, {"浙江", "ZJ"}, {"广东", "GD"}, {"山东", "SD"},
    {"河南", "HN"}, {"四川", "SC"}, {"湖北", "HB"}, {"湖南", "HN"}, {"福建", "FJ"}, {"安徽", "AH"},
    {"云南", "YN"}, {"贵州", "GZ"}, {"陕西", "SX"}, {"甘肃", "GS"}, {"青海", "QH"}, {"吉林", "JL"},
};

constexpr const char* kUsFirst[] = {"Vel", "Tor", "Quin", "Bel", "Dor", "Fen", "Gal", "Jor", "Kel", "Lor",
                                    "Nor", "Pel", "Ral",  "Sel", "Tam", "Wex", "Zan", "Bry", "Cor", "Hes"};
constexpr const char* kUsSecond[] = {"amont",     "erodyne", "ivotek", "andria",  "ixfield",   "oragate",
                                     "umobridge", "etaware", "iawick", "uxstone", "ellopoint", "istara"};
constexpr const char* kUsForm[] = {"Holdings Inc.",     "Corporation", "Therapeutics Inc.", "Technologies Inc.",
                                   "Acquisition Corp.", "Bancorp",     "Realty Trust Inc.", "Energy Partners LP"};

/// Of pinyin alone. Not std::toupper, which goes by the locale: a seed gives the same bytes everywhere.
char upper(char letter) {
    return static_cast<char>(letter - 'a' + 'A');
}

}  // namespace

Company inventCompany(Dice& dice) {
    // These three throws and no other: whoever names the same company throws them again.
    const Syllable& first = dice.pick(kFirst);
    const Syllable& second = dice.pick(kSecond);
    const Trade& trade = dice.pick(kTrades);
    Company company;
    company.brand.text = std::string(first.text) + second.text;
    company.brand.spell = {upper(first.pinyin[0]), upper(second.pinyin[0])};
    company.brand.english = std::string(first.pinyin) + second.pinyin;
    company.brand.english[0] = upper(company.brand.english[0]);
    company.full = {company.brand.text + trade.text, company.brand.spell + trade.spell,
                    company.brand.english + " " + trade.english + " Co., Ltd."};
    company.industry = trade.industry;
    return company;
}

Name inventFund(Dice& dice, std::string_view kind) {
    const Trade& theme = dice.pick(kThemes);
    const Name manager = inventCompany(dice).brand;
    return {fmt::format("{}{}{}", theme.text, kind, manager.text), fmt::format("{}{}", theme.spell, manager.spell),
            fmt::format("{} {} {}", manager.english, theme.english, kind)};
}

std::string inventUsCompany(Dice& dice) {
    const char* const first = dice.pick(kUsFirst);
    const char* const second = dice.pick(kUsSecond);
    return fmt::format("{}{} {}", first, second, dice.pick(kUsForm));
}

Name inventBond(Dice& dice, int yearOfIssue) {
    const Syllable& province = dice.pick(kProvinces);
    const Name company = inventCompany(dice).brand;
    const bool isPublic = dice.oneIn(2);
    const auto number = dice.between<int>(1, 48);
    return {fmt::format("{:02}{}{:02}", yearOfIssue % 100, isPublic ? province.text : company.text, number),
            fmt::format("{:02}{}{:02}", yearOfIssue % 100, isPublic ? province.pinyin : company.spell, number), ""};
}

}  // namespace marketday
