# shellcheck shell=bash
# Completes the command line of keldothumbctl. bash-completion loads this file by its name.

_keldothumbctl() {
  local cur prev words cword
  _init_completion || return

  # The command and its subcommand, if it has any. Options may come before and between them.
  local command='' i
  for ((i = 1; i < cword; ++i)); do
    case ${words[i]} in
      --color) ((++i)) ;;
      -*) ;;
      queue | index)
        [[ -z $command ]] || break
        command=${words[i]}
        ;;
      *)
        command+=${command:+ }${words[i]}
        break
        ;;
    esac
  done

  case $prev in
    --color)
      mapfile -t COMPREPLY < <(compgen -W 'auto always never' -- "$cur")
      return
      ;;
    --profile)
      _filedir
      return
      ;;
    --only-missing-kinds)
      # The kinds after the last comma.
      local done_part=''
      [[ $cur != *,* ]] || done_part=${cur%,*},
      mapfile -t COMPREPLY < <(compgen -P "$done_part" -W 'S M B L XL SM' -- "${cur##*,}")
      compopt -o nospace
      return
      ;;
    -o | --output)
      _filedir '@(htm|html)'
      return
      ;;
    -j | --jobs)
      mapfile -t COMPREPLY < <(compgen -W "{1..$(nproc)}" -- "$cur")
      return
      ;;
    --title | --quiet-period | --rescan)
      return
      ;;
  esac

  local options='--help --quiet --verbose --color' arguments=directories
  case $command in
    '')
      options='--help --version'
      arguments='make status failed retry clean dirs queue progress index gallery watch doctor'
      ;;
    make) options+=' -j --jobs --profile --nice --only-missing-kinds --json' ;;
    status) options+=' --by-kind --profile --json' ;;
    failed) options+=' --profile --json -0 --null' ;;
    retry) options+=' -j --jobs --profile --nice --json' ;;
    clean) options+=' --force --json' ;;
    dirs) options+=' --todo -0 --null --profile' ;;
    gallery) options+=' -o --output --title --profile' ;;
    watch) options+=' --quiet-period --rescan -j --jobs --profile --nice' ;;
    queue) arguments='list run' ;;
    'queue list') options+=' --json' arguments='' ;;
    'queue run') options+=' -j --jobs --profile --nice --json' arguments='' ;;
    index) arguments='mask list show' ;;
    'index mask') options+=' --video --json' ;;
    'index list') options+=' --json' arguments='' ;;
    'index show') options+=' --json' arguments=files ;;
    progress | doctor) options+=' --json' arguments='' ;;
    *) return ;;
  esac

  if [[ $cur == -* && " ${words[*]:0:cword} " != *' -- '* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$options" -- "$cur")
    return
  fi
  case $arguments in
    directories) _filedir -d ;;
    files) _filedir ;;
    *) mapfile -t COMPREPLY < <(compgen -W "$arguments" -- "$cur") ;;
  esac
} &&
  complete -F _keldothumbctl keldothumbctl
