"""The catalogue of tradable instruments: days from files, centers, stores, and all of them as columns.

    import inscenter

    center = inscenter.ServerCenter.open("day")
    center["SH600000"].name
    center.frame(market="SHO")
"""

from __future__ import annotations

from enum import IntFlag

from ._native import (
    Bond,
    Catalogue,
    Center,
    Change,
    ClientCenter,
    Counterparty,
    Day,
    Etf,
    EtfComponent,
    Instrument,
    Issuance,
    IssuancePrice,
    Issue,
    OtcPlan,
    Record,
    ServerCenter,
    SnapshotWarning,
    Statistics,
    Store,
    StoreError,
    Subscription,
    Table,
    TenderBond,
    UnreadableError,
    View,
    __version__,
    _trader_types,
    changed_fields,
    diff,
    frame,
    hash_key,
    load_market_rules,
    reset_market_rules,
    set_today,
    table,
    today,
)
from ._generate import generate

TraderType = IntFlag("TraderType", _trader_types)
TraderType.__doc__ = "Kinds of trading; get_instruments and frame list what each stands for."
