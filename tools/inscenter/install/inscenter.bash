# Completion of inscenter's command line for bash.

_inscenter() {
    local word=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local global="--help --version --data --feed --center --store --format --jsonl --rules --today --log --user --password-file --creds --ca"
    local listing="--where --fields --sort --limit"
    local verbs="help summary get has list find explain sql check export report mains products spreads codes outer etf etfs bond bonds
        interbank tenderbonds counterparties otc issuances issuanceprices shell store tour diff generate feed"
    local storeVerbs="ls dump verify stat key"
    local feedVerbs="publish changes watch status serve"
    local markets="SH SZ BJ SHFI HK HGT SGT SHO SZO CFFEX SHFE DCE CZCE INE GFEX NEEQ SHGE BANK ETFINSTS WP NYSE
        NASDAQ OTC SOTC"
    local futures="CFFEX SHFE DCE CZCE INE GFEX"
    local instrument="market code name platformCode productId productName englishName spellName isin currency industry
        outerMarketName statusString underlyingMarket underlyingCode listingDate delistingDate expireDate
        startDeliveryDate endDeliveryDate exerciseDate tradingDay mainContractFlag issueState securityClass
        connectFlagValue combinedConnectFlags optionType productGroup additionalIssueFlag tradingStatus suspendedFlag
        marginTradingFlag shortSellingFlag exerciseStyle deliveryYear deliveryMonth volumeMultiple lotSize
        minLimitOrderVolume maxLimitOrderVolume minMarketOrderVolume maxMarketOrderVolume orderVolumeStep
        pricePrecision priceTick preClosePrice preSettlementPrice upperLimitPrice lowerLimitPrice issuePrice
        strikePrice longMarginRatio shortMarginRatio marginUnit faceValue accruedInterest couponRate totalShares
        floatShares preOpenInterest preVolume"
    local etfs="type exchid etfcode prcode name cashbalance maxcashratio reportunit navpercu nav ecc needpublish
        enablecreation enableredemption creationlimit redemptionlimit tradingday pretradingday stocks"
    local bonds="bondCode bondName shanghaiCode shenzhenCode bondType issuer currency issueDate valueDate maturityDate
        creditRating issuerRating couponType paymentFrequency couponRate faceValue issuePrice accruedInterest
        issueAmount remainingYears"
    local tenderbonds="code name tenderDate paymentDate bondType issuer tenderMethod termDays plannedAmount lowerLimit
        upperLimit couponRate"
    local counterparties="id name removed shortName counterpartyType contact phone custodyAccount creditLimit"
    local otc="planType riskLevel manager openDate closeDate minSubscribeAmount subscribeStep expectedYield
        managementFee $instrument"
    local issuances="code name issuanceState issuer startDate endDate valueDate maturityDate issueAmount issuePrice
        couponRate minSubscribeAmount"
    local issuanceprices="code enquiryState enquiryPrice lowestPrice highestPrice priceStep tradingDay"
    local rules="duplicate-key expired no-underlying unknown-component main-twice zero-tick"
    local i verb="" storeVerb="" options="" fields="" named="" before=""

    case $previous in
        --center) COMPREPLY=($(compgen -W "server client" -- "$word")) && return ;;
        --format) COMPREPLY=($(compgen -W "table json jsonl csv" -- "$word")) && return ;;
        --data | --store | --rules | --html | --against | --old | --sqlite | --csv | --ndjson) compopt -o default 2>/dev/null; COMPREPLY=(); return ;;
    esac
    for ((i = 1; i < COMP_CWORD; i++)); do
        case ${COMP_WORDS[i]} in
            --data | --feed | --center | --store | --format | --rules | --today | --user | --password-file | --creds | --ca) ((++i)) ;;
            -*) ;;
            *)
                if [ -z "$verb" ]; then
                    verb=${COMP_WORDS[i]}
                elif [[ $verb == store || $verb == feed ]] && [ -z "$storeVerb" ]; then
                    storeVerb=${COMP_WORDS[i]}
                fi
                ;;
        esac
    done
    # The option whose values stand before the cursor, and the fields of what the verb lists.
    for ((i = COMP_CWORD - 1; i > 0; i--)); do
        [[ ${COMP_WORDS[i]} == --* ]] && named=${COMP_WORDS[i]} && break
    done
    case $verb in
        list) fields="$instrument filed" ;;
        mains) fields=$instrument markets=$futures ;;
        etfs | bonds | tenderbonds | counterparties | otc | issuances | issuanceprices) fields=${!verb} ;;
    esac
    if [ "$named" = --market ] && [[ $word != -* ]]; then
        COMPREPLY=($(compgen -W "$markets" -- "$word"))
        return
    fi
    case $named in
        --rule | --no-rule) [[ $word != -* ]] && COMPREPLY=($(compgen -W "$rules" -- "$word")) && return ;;
    esac
    case $previous in
        --fields | --sort | --where)
            case $previous$word in
                --fields*,*) before=${word%,*}, ;;
                --sort-*) before=- ;;
            esac
            [ "$previous" = --sort ] || compopt -o nospace 2>/dev/null
            COMPREPLY=($(compgen -P "$before" -W "$fields" -- "${word#"$before"}"))
            return
            ;;
    esac
    case $verb in
        "") options=$verbs ;;
        help) options=$verbs ;;
        list) options="--market --trader-type $listing" ;;
        mains) options="--market --by-product $listing" ;;
        etfs | bonds | tenderbonds | counterparties | issuances | issuanceprices) options=$listing ;;
        otc) options="--group $listing" ;;
        find) options="--limit" ;;
        report) options="--html --against" ;;
        sql | shell) options="--old" ;;
        check) options="--rule --no-rule --show-sql --limit" ;;
        export) options="--sqlite --csv --ndjson --zeros --bom" ;;
        diff) options="--ignore --exit-code" ;;
        generate) options="--size --seed --date" ;;
        feed)
            case $storeVerb in
                "") options=$feedVerbs ;;
                serve) options="--name --port --peers --tls-cert --tls-key --ca" ;;
                *) options="--name --server" ;;&
                publish) options="$options --day --replicas --despite-issues" ;;
                changes) options="$options --remove --despite-issues" ;;
                watch) options="$options --count" ;;
            esac
            ;;
        store)
            case $storeVerb in
                "") options=$storeVerbs ;;
                dump) options="--keys-only --prefix --limit" ;;
            esac
            ;;
    esac
    if [[ $word == -* || -z $verb || $verb == help || (($verb == store || $verb == feed) && -z $storeVerb) ]]; then
        [[ $word == -* ]] && options="$options $global"
        COMPREPLY=($(compgen -W "$options" -- "$word"))
    else
        compopt -o default 2>/dev/null # directories and files
        COMPREPLY=()
    fi
}

complete -F _inscenter inscenter
