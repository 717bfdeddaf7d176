# Completion of inscenter's command line for bash.

_inscenter() {
    local word=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local global="--help --version --data --center --store --format --jsonl --rules --today --log"
    local listing="--where --fields --sort --limit"
    local verbs="summary get has list find explain report mains products spreads codes outer etf etfs bond bonds interbank
        tenderbonds counterparties otc issuances issuanceprices shell store tour compare diff generate"
    local storeVerbs="ls dump verify stat"
    local i verb="" storeVerb="" options=""

    case $previous in
        --center) COMPREPLY=($(compgen -W "server client" -- "$word")) && return ;;
        --format) COMPREPLY=($(compgen -W "table json jsonl csv" -- "$word")) && return ;;
        --data | --store | --rules | --html | --against) compopt -o default 2>/dev/null; COMPREPLY=(); return ;;
    esac
    for ((i = 1; i < COMP_CWORD; i++)); do
        case ${COMP_WORDS[i]} in
            --data | --center | --store | --format | --rules | --today) ((++i)) ;;
            -*) ;;
            *)
                if [ -z "$verb" ]; then
                    verb=${COMP_WORDS[i]}
                elif [ "$verb" = store ] && [ -z "$storeVerb" ]; then
                    storeVerb=${COMP_WORDS[i]}
                fi
                ;;
        esac
    done
    case $verb in
        "") options=$verbs ;;
        list) options="--market --trader-type $listing" ;;
        mains) options="--market --by-product $listing" ;;
        etfs | bonds | tenderbonds | counterparties | issuances | issuanceprices) options=$listing ;;
        otc) options="--group $listing" ;;
        find) options="--limit" ;;
        report) options="--html --against" ;;
        diff) options="--ignore" ;;
        generate) options="--size --seed --date" ;;
        store)
            case $storeVerb in
                "") options=$storeVerbs ;;
                dump) options="--keys-only --prefix --limit" ;;
            esac
            ;;
    esac
    if [[ $word == -* || -z $verb || ($verb == store && -z $storeVerb) ]]; then
        [[ $word == -* ]] && options="$options $global"
        COMPREPLY=($(compgen -W "$options" -- "$word"))
    else
        compopt -o default 2>/dev/null # directories and files
        COMPREPLY=()
    fi
}

complete -F _inscenter inscenter
