# bash completion for nivogx-cli: commands, their options, contacts' NIVO IDs after -r, and files.

_nivogx_cli() {
  local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD-1]}
  local commands="signup signin signout whoami encrypt decrypt contacts profile log inspect help"
  local i command="" words
  for ((i = 1; i < COMP_CWORD; i++)); do
    case ${COMP_WORDS[i]} in
      --server) ((i++)) ;;
      -*) ;;
      *) command=${COMP_WORDS[i]}; break ;;
    esac
  done

  case $prev in
    -r|--recipient)
      # The first word of each line is the NIVO ID; a contact whose certificate is not verified
      # says so after it.
      words=$("${COMP_WORDS[0]}" contacts list 2>/dev/null | cut -d' ' -f1)
      COMPREPLY=($(compgen -W "$words" -- "$cur"))
      return ;;
    -o|--output)
      COMPREPLY=($(compgen -d -- "$cur"))
      return ;;
    --server|--search)
      return ;;
    --type)
      COMPREPLY=($(compgen -W "encrypt decrypt" -- "$cur"))
      return ;;
    --column|--sort)
      COMPREPLY=($(compgen -W "Date Time Type File Recipient Status" -- "$cur"))
      return ;;
  esac

  if [[ -z $command ]]; then
    if [[ $cur == -* ]]; then
      COMPREPLY=($(compgen -W "--server --help --version" -- "$cur"))
    else
      COMPREPLY=($(compgen -W "$commands" -- "$cur"))
    fi
    return
  fi

  local options="--help"
  case $command in
    signup) options+=" --password-stdin" ;;
    signin) options+=" --password-stdin --profile-file" ;;
    whoami) options+=" --verbose" ;;
    encrypt) options+=" -r --recipient --last-used --armor --stdout -R --recursive -o --output --json --password-stdin" ;;
    decrypt) options+=" --require-verified --stdout -R --recursive -o --output --json --password-stdin" ;;
    contacts|inspect) options+=" --json" ;;
    log) options+=" --type --column --search --sort --desc --json" ;;
    help) COMPREPLY=($(compgen -W "$commands" -- "$cur")); return ;;
  esac
  if [[ $cur == -* ]]; then
    COMPREPLY=($(compgen -W "$options" -- "$cur"))
    return
  fi
  local first=$((i + 1))
  case $command in
    contacts)
      if ((COMP_CWORD == first)); then
        COMPREPLY=($(compgen -W "list show add remove export import" -- "$cur"))
      elif [[ ${COMP_WORDS[first]} == @(show|remove) ]]; then
        words=$("${COMP_WORDS[0]}" contacts list 2>/dev/null | cut -d' ' -f1)
        COMPREPLY=($(compgen -W "$words" -- "$cur"))
      else
        COMPREPLY=($(compgen -f -- "$cur"))
      fi ;;
    profile)
      if ((COMP_CWORD == first)); then COMPREPLY=($(compgen -W "export" -- "$cur")); fi ;;
    log)
      if ((COMP_CWORD == first)); then COMPREPLY=($(compgen -W "export clear" -- "$cur")); fi ;;
    signup|signin|signout|whoami) ;;
    *) COMPREPLY=($(compgen -f -- "$cur")) ;;
  esac
}
complete -o filenames -F _nivogx_cli nivogx-cli
